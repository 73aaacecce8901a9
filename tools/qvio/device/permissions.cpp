#include "device/permissions.h"

#include <grp.h>
#include <pwd.h>

#include <array>
#include <cstdio>

namespace qvio_tool {
namespace {

std::string NameOf(const passwd* user, uid_t id) {
  return user != nullptr ? user->pw_name : std::to_string(id);
}
std::string NameOf(const group* group, gid_t id) {
  return group != nullptr ? group->gr_name : std::to_string(id);
}

}  // namespace

std::string GroupOf(const struct stat& file) { return NameOf(::getgrgid(file.st_gid), file.st_gid); }

bool GroupMayUse(const struct stat& file) {
  return (file.st_mode & S_IRGRP) != 0 && (file.st_mode & S_IWGRP) != 0;
}

std::string ForbiddenHint(const std::string& path, const struct stat& file) {
  std::array<char, 16> mode{};
  std::snprintf(mode.data(), mode.size(), "%04o", file.st_mode & 07777U);
  const auto groupName = GroupOf(file);
  return path + " belongs to " + NameOf(::getpwuid(file.st_uid), file.st_uid) + ":" + groupName + ", mode " +
         mode.data() + (GroupMayUse(file) ? "; add yourself to " + groupName : "; ask its owner for access");
}

}  // namespace qvio_tool
