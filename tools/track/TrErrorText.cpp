#include "tools/track/TrErrorText.h"

#include "base/Exception.h"

#include <cctype>

namespace {

std::string rawText(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const Exception& e) {
        return e.getMessage().str();
    } catch (const std::exception& e) {
        return e.what();
    } catch (const char* text) {
        return text ? text : "";
    } catch (...) {
        return "";
    }
}

} // namespace

std::string errorText(const std::exception_ptr& error) {
    if (!error)
        return "";
    // A message may hold a user's path or a dependency's text, either of
    // which can run over several lines; the tool's error is one.
    std::string text = rawText(error);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.pop_back();
    for (size_t i = text.find_first_of("\r\n"); i != std::string::npos;
         i = text.find_first_of("\r\n", i)) {
        const size_t end = text.find_first_not_of("\r\n", i);
        text.replace(i, end == std::string::npos ? std::string::npos : end - i, "; ");
    }
    return text.empty() ? "unknown error" : text;
}
