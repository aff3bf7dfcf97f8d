/* A driver with one defect for each result of 'zulisim sweep'. */
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

static const unsigned char kaloGuid[16] = {0xf1, 0xfc, 0xf6, 0xfb, 0xcf, 0x96, 0x2e, 0x4e,
                                           0xa6, 0xa6, 0x1b, 0xab, 0x8c, 0xbe, 0x36, 0xb1};

static int readReply(int device, unsigned char* reply) {
  ssize_t count;
  do {
    count = read(device, reply, 24);
  } while (count < 0 && errno == EAGAIN); /* defect: waits for ever */
  return count < 0 ? -1 : 0;
}

int main(void) {
  unsigned char record[16], request[24] = {0}, reply[24] = {0};
  int device = open("/dev/zuli", O_RDWR);
  volatile int* parameter = device < 0 ? NULL : &device;
  device = *parameter; /* defect: the open is not checked */

  memcpy(record, kaloGuid, sizeof record);
  if (ioctl(device, 0xC0104801u, record) != 0) return 2; /* defect: leaves the device open */

  request[4] = 0x10;
  if (write(device, request, sizeof request) < 0) {
    puts("cannot send");
    close(device);
    return 3;
  }
  readReply(device, reply); /* defect: uses a reply that may be missing or negative */
  printf("command %u is done\n", (unsigned)reply[4] & 0);
  close(device);
  return 0;
}
