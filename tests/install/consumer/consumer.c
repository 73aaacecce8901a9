#include <quorvio/quorvio.h>
#include <stdio.h>

int main(void) {
  uint32_t major = 0;
  uint32_t minor = 0;
  uint32_t update = 0;
  if (QV_IO_GetVersion(&major, &minor, &update) != QV_IO_OK) return 1;
  printf("%u.%u.%u\n", (unsigned)major, (unsigned)minor, (unsigned)update);
  return 0;
}
