// Looks in files for the command line: a picture's XMP, or a look's JSON or link text.
#pragma once

#include <string>

#include "core/look/xmp.h"

namespace zorvex::cli {

// The look of the file at `path`: a JPEG or PNG carrying one, or a text file holding the JSON form or
// the compact form. Found::none for a picture without a look; Found::error with `error` naming the
// problem for a file that can't be read or holds no valid look.
look::Found readLookFile(const std::string& path, look::Look& out, std::string& error);

}  // namespace zorvex::cli
