/* A driver with one defect for each result of 'zulisim sweep'. */
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <unistd.h>

int main(void) {
  unsigned char record[16] = {0xf1, 0xfc, 0xf6, 0xfb, 0xcf, 0x96, 0x2e, 0x4e,
                              0xa6, 0xa6, 0x1b, 0xab, 0x8c, 0xbe, 0x36, 0xb1};
  unsigned char request[24] = {[4] = 0x10}, reply[24];
  int device = open("/dev/zuli", O_RDWR);
  volatile int* parameter = device < 0 ? NULL : &device;
  device = *parameter; /* defect: the open is not checked */

  if (ioctl(device, 0xC0104801u, record) != 0) return 2; /* defect: leaves the device open */

  if (write(device, request, sizeof request) < 0) {
    close(device);
    return 3;
  }
  while (read(device, reply, sizeof reply) < 0 && errno == EAGAIN) { /* defect: waits for ever */
  }
  puts("the command is done"); /* defect: the reply may be missing or negative */
  close(device);
  return 0;
}
