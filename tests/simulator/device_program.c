/* A driver that knows nothing of the simulator. Each argument is one step. Prints the result of
 * each step on standard output. */

#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

static const char* self;
static int device = -1;
static unsigned char buffer[8192];
static void* volatile nowhere = (void*)8;

static const unsigned char clients[3][16] = {{0xf1, 0xfc, 0xf6, 0xfb, 0xcf, 0x96, 0x2e, 0x4e, 0xa6,
                                              0xa6, 0x1b, 0xab, 0x8c, 0xbe, 0x36, 0xb1},
                                             {0x7e, 0xab, 0x38, 0xb6, 0xe2, 0x94, 0xa2, 0x4e, 0xa5,
                                              0x52, 0xd1, 0xc5, 0x4b, 0x62, 0x7f, 0x04},
                                             "no such client"};

/* Calls a hook before the environment is set up, as the start-up code of Android's libc does. */
static void CallEarly(void) {
  char** const later = environ;
  environ = NULL;
  if (access("/", F_OK) != 0) _exit(97);
  environ = later;
}
__attribute__((section(".preinit_array"), used)) static void (*const early)(void) = CallEarly;

static long Open(size_t none) { return (device = open("/dev/zuli", O_RDWR)) < 0 ? -1 : (long)none; }

/* Returns the maximum message length, or a negative value for a wrong record. */
static long Connect(size_t client) {
  unsigned char record[16];
  memcpy(record, clients[client], sizeof(record));
  if (ioctl(device, 0xC0104801u, record) != 0) return -1;
  if (memcmp(record + 8, clients[client] + 8, 8) != 0) return -2;
  return record[0] | record[1] << 8 | record[2] << 16;
}

static long Ioctl(size_t request) { return ioctl(device, request, buffer); }
static long Read(size_t count) { return read(device, buffer, count); }
static long Write(size_t count) {
  buffer[4] = 0x10;
  return write(device, buffer, count);
}
static long BadRead(size_t count) { return read(device, nowhere, count); }
static long BadWrite(size_t count) { return write(device, nowhere, count); }
static long Close(size_t none) { return close(device) + (long)none; }

/* No hook sees these calls, like the system calls of a language runtime without libc. */
static long Bare(size_t count) {
  return send(device, buffer, count, 0) + recv(device, buffer, sizeof(buffer), MSG_WAITALL);
}

static long NonBlock(size_t none) { return fcntl(device, F_SETFL, O_NONBLOCK) + (long)none; }

static long Block(size_t none) { return fcntl(device, F_SETFL, 0) + (long)none; }

static long On(size_t descriptor) { return device = (int)descriptor; }
static long Onto(size_t descriptor) { return dup2(device, (int)descriptor); }

static long InChild(size_t count) {
  char on[16], exchange[32];
  int status = 0;
  snprintf(on, sizeof(on), "on:%d", device);
  snprintf(exchange, sizeof(exchange), "write:%zu", count);
  if (fork() == 0) {
    execl(self, self, on, exchange, "close", (char*)NULL);
    _exit(99);
  }
  wait(&status);
  return WEXITSTATUS(status);
}

/* The child uses the memory of this process, but has descriptors of its own. */
static long InVfork(size_t count) {
  int status = 0;
  if (vfork() == 0) _exit((int)Write(count) + close(device));
  wait(&status);
  return WEXITSTATUS(status);
}

static long Log(size_t failed) {
  FILE* file = fopen("/data/Marvoleth.log", "a");
  if (file == NULL) return -1;
  fputs(failed ? "StartIoEx3:200: General Exception : </script><b>\n" : "a line\n", file);
  return fclose(file);
}

static long Exit(size_t status) {
  puts("exit");
  exit((int)status);
}

static const struct {
  const char* name;
  long (*run)(size_t number);
} steps[] = {{"open", Open},       {"connect", Connect},   {"ioctl", Ioctl},
             {"read", Read},       {"write", Write},       {"close", Close},
             {"badread", BadRead}, {"badwrite", BadWrite}, {"bare", Bare},
             {"on", On},           {"child", InChild},     {"log", Log},
             {"exit", Exit},       {"nonblock", NonBlock}, {"vfork", InVfork},
             {"onto", Onto},       {"block", Block}};

static void OnSignal(int number) { (void)number; }

int main(int argc, char** argv) {
  const struct sigaction action = {.sa_handler = OnSignal};
  sigaction(SIGUSR1, &action, NULL);
  self = argv[0];
  for (int i = 1; i < argc; ++i) {
    const char* step = argv[i];
    const size_t length = strcspn(step, ":");
    size_t known = 0;
    while (strlen(steps[known].name) != length || strncmp(steps[known].name, step, length) != 0) {
      if (++known == sizeof(steps) / sizeof(steps[0])) return 98;
    }
    const long result = steps[known].run(step[length] ? strtoul(step + length + 1, NULL, 0) : 0);
    printf(result < 0 ? "%s=errno %ld" : "%s=%ld", step, result < 0 ? errno : result);
    fputs(i == argc - 1 ? "\n" : ", ", stdout);
    fflush(stdout);
  }
  return 0;
}
