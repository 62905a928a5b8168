// run/errors.h - the texts behind error numbers, those of the stages and those of the system.
#pragma once

#include <cstdint>

namespace velmora {

/// Logs the text of a stage's error number: the number itself for 0, "unknown error" for a number
/// that no stage can set.
/// @return always false, so that a failing function can return it
bool report_error(std::int32_t number);

/// Logs that the program failed to do `text`, an infinitive with its object.
/// @return always false
bool fail_to(const char* text);

/// The system's text for an errno value, or the number in words. The text for an unknown number
/// stands until the next such call.
const char* system_error_text(int number);

} // namespace velmora
