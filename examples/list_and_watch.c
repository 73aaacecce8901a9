/* Lists the network devices on a local interface, then reports those that appear and disappear until Enter is
 * pressed.
 *
 *     list_and_watch 127.0.0.1
 */
#include <quorvio/quorvio.h>
#include <stdio.h>

/* Called on a thread of the library with a lock held: read the event, hand it on, return soon. */
static void on_event(void* user, uint32_t type, const QV_IO_Event* event) {
  char text[512];
  size_t size = sizeof text;
  (void)user;
  if (type != QV_IO_EVENT_DEVICE_FOUND && type != QV_IO_EVENT_DEVICE_LOST) return;
  if (QV_IO_GetDiscoveryEventData(event, "include-locator\ninclude-available", text, &size) != QV_IO_OK)
    return;
  printf("%s %s\n", type == QV_IO_EVENT_DEVICE_FOUND ? "found" : "lost ", text);
}

static uint32_t list(const char* address) {
  static char text[1 << 16];
  size_t size = sizeof text;
  char options[256];
  uint32_t result;
  snprintf(
      options, sizeof options,
      "iface-type network\niface network:%s\ndiscovery-timeout 500\ninclude-locator\ninclude-device-info",
      address);
  result = QV_IO_EnumerateDevices(QV_IO_INTERFACE_ALL, options, text, &size);
  if (result == QV_IO_OK) printf("%s\n", text);
  return result;
}

int main(int argc, char** argv) {
  char options[128];
  uint32_t result;
  if (argc != 2) {
    fprintf(stderr, "usage: list_and_watch ADDRESS\n");
    return 2;
  }
  result = list(argv[1]);
  if (result == QV_IO_OK) {
    snprintf(options, sizeof options, "discovery-iface network:%s", argv[1]);
    QV_IO_SetEventCallback(on_event, NULL);
    result = QV_IO_SetGlobalOptions(options);
  }
  if (result != QV_IO_OK) {
    fprintf(stderr, "result %u\n", (unsigned)result);
    return 1;
  }
  (void)getchar();
  QV_IO_SetGlobalOptions("discovery-iface network:none"); /* no event comes after this */
  return 0;
}
