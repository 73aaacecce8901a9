#include <quorvio/quorvio.hpp>

#include <iostream>

int main() {
  uint32_t version[3] = {};
  if (QV_IO_GetVersion(&version[0], &version[1], &version[2]) != QV_IO_OK) return 1;
  try {
    quorvio::Channel("nowhere");
  } catch (const quorvio::Error& error) {
    if (error.code() != quorvio::Errc::invalidLocator) return 1;
  }
  std::cout << version[0] << '.' << version[1] << '.' << version[2] << '\n';
}
