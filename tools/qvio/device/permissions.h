#pragma once

#include <sys/stat.h>

#include <string>

namespace qvio_tool {

/// Whom a file belongs to that the user may not use, and what to do about it.
std::string ForbiddenHint(const std::string& path, const struct stat& file);

/// The name of the group that a file belongs to, and whether that group may read and write it.
std::string GroupOf(const struct stat& file);
bool GroupMayUse(const struct stat& file);

}  // namespace qvio_tool
