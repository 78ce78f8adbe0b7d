#pragma once

#include <exception>
#include <string>

/// The one-line text of whatever a step of the tool threw: the message of
/// our Exception family, what() of any other std::exception, or the bare
/// string that a few paths of the image library throw. Line breaks become
/// "; " and trailing blanks go. Anything else, or an empty text, is
/// "unknown error". A null pointer gives an empty text.
std::string errorText(const std::exception_ptr& error);
