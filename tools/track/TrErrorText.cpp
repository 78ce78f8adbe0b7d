#include "tools/track/TrErrorText.h"

#include "base/Exception.h"

std::string errorText(const std::exception_ptr& error) {
    if (!error)
        return "";
    try {
        std::rethrow_exception(error);
    } catch (const Exception& e) {
        return e.getMessage().str();
    } catch (const std::exception& e) {
        return e.what();
    } catch (const char* text) {
        return text ? text : "unknown error";
    } catch (...) {
        return "unknown error";
    }
}
