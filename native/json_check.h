// A strict check of JSON text (RFC 8259), for documents handed on as they are: no values are built.
#pragma once

#include <string>
#include <string_view>

namespace zorvex::native {

// True when `text` is one JSON object (white space around it allowed). False with `error` saying
// what is wrong and where.
bool isJsonObject(std::string_view text, std::string& error);

}  // namespace zorvex::native
