#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace qvusb {

// Files of the kernel, which come and go while they are read.

/// The first line of a file; empty when it cannot be read.
std::string Line(const std::filesystem::path& file);

/// The names in a folder, in alphabetical order; none when it is not there or may not be read. Throws
/// std::system_error when the process may open no more files: an empty list would be wrong.
std::vector<std::string> Entries(const std::filesystem::path& folder);

/// The name that a symbolic link refers to, without the folders; empty when there is no such link.
std::string LinkedName(const std::filesystem::path& link);

}  // namespace qvusb
