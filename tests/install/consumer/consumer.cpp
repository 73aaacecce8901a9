#include <quorvio/quorvio.h>

#include <iostream>

int main() {
  uint32_t version[3] = {};
  if (QV_IO_GetVersion(&version[0], &version[1], &version[2]) != QV_IO_OK) return 1;
  std::cout << version[0] << '.' << version[1] << '.' << version[2] << '\n';
}
