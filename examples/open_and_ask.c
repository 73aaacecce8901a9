/* Opens a device, sends a line, prints what comes back within a second, and closes it.
 *
 *     open_and_ask network:127.0.0.1:5000 "" "*IDN?"
 *     open_and_ask serial:/dev/ttyUSB0 "baudrate 115200" "*IDN?"
 */
#include <quorvio/quorvio.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

/* Called on the receive thread of the handle: whatever it touches must be safe there. */
static void on_receive(void* user, const uint8_t* data, size_t length) {
  (void)user;
  fwrite(data, 1, length, stdout);
  fflush(stdout);
}

/* The channel stays open after a notice; whether to close is the application's decision. */
static void on_error(void* user, uint32_t result) {
  (void)user;
  fprintf(stderr, "notice: result %u\n", (unsigned)result);
}

int main(int argc, char** argv) {
  uint32_t handle = 0;
  uint32_t result;
  const struct timespec second = {1, 0};

  if (argc != 4) {
    fprintf(stderr, "usage: open_and_ask LOCATOR OPTIONS LINE\n");
    return 2;
  }
  result = QV_IO_Open(&handle, argv[1], argv[2], NULL, on_receive, on_error);
  if (result != QV_IO_OK) {
    fprintf(stderr, "cannot open %s: result %u\n", argv[1], (unsigned)result);
    return 1;
  }
  result = QV_IO_Send(handle, argv[3], strlen(argv[3]));
  if (result == QV_IO_OK) result = QV_IO_Send(handle, "\n", 1);
  if (result == QV_IO_OK) {
    nanosleep(&second, NULL);
  } else {
    fprintf(stderr, "cannot send: result %u\n", (unsigned)result);
  }
  QV_IO_Close(handle, 1); /* on return no callback runs or will run */
  return result == QV_IO_OK ? 0 : 1;
}
