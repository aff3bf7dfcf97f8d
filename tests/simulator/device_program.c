/* A program as a driver's author would write it, which knows nothing of the simulator: each
 * argument is one step, and what a step gave goes to standard output. */

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static int device = -1;
static unsigned char buffer[8192];
static void* volatile nowhere = (void*)8;

static void Report(const char* step, long result) {
  if (result < 0) {
    printf("%s: errno %d\n", step, errno);
  } else {
    printf("%s: %ld\n", step, result);
  }
  fflush(stdout);
}

static long Connect(void) {
  static const unsigned char kalo[16] = {0xf1, 0xfc, 0xf6, 0xfb, 0xcf, 0x96, 0x2e, 0x4e,
                                         0xa6, 0xa6, 0x1b, 0xab, 0x8c, 0xbe, 0x36, 0xb1};
  unsigned char record[16];
  memcpy(record, kalo, sizeof(record));
  if (ioctl(device, 0xC0104801u, record) != 0) return -1;
  return record[0] | record[1] << 8;
}

static long InChild(const char* self) {
  const pid_t child = fork();
  int status = 0;
  if (child == 0) {
    char text[16];
    snprintf(text, sizeof(text), "on:%d", device);
    execl(self, self, text, "write:20", "close", (char*)NULL);
    _exit(99);
  }
  waitpid(child, &status, 0);
  return WEXITSTATUS(status);
}

static long Log(const char* text) {
  FILE* file = fopen("/data/Marvoleth.log", "a");
  if (file == NULL) return -1;
  fputs(text, file);
  return fclose(file);
}

static long Pieces(size_t count) {
  static struct iovec pieces[1024];
  for (size_t i = 0; i < count && i < 1024; ++i) {
    pieces[i].iov_base = buffer + i;
    pieces[i].iov_len = 1;
  }
  return writev(device, pieces, (int)count);
}

/* Prints on standard error, as the time differs from run to run. */
static long Exchanges(size_t count) {
  struct timespec start, end;
  clock_gettime(CLOCK_MONOTONIC, &start);
  for (size_t i = 0; i < count; ++i) {
    if (write(device, buffer, 64) != 64 || read(device, buffer, 4096) != 64) return -1;
  }
  clock_gettime(CLOCK_MONOTONIC, &end);
  const double seconds =
      (double)(end.tv_sec - start.tv_sec) + (double)(end.tv_nsec - start.tv_nsec) * 1e-9;
  fprintf(stderr, "%.1f us an exchange\n", seconds * 1e6 / (double)count);
  return (long)count;
}

static int Step(const char* self, const char* step) {
  const char* colon = strchr(step, ':');
  const size_t count = colon != NULL ? strtoul(colon + 1, NULL, 0) : 0;
  if (strncmp(step, "on:", 3) == 0) {
    device = (int)count;
  } else if (strcmp(step, "open") == 0) {
    device = open("/dev/zuli", O_RDWR);
    Report(step, device < 0 ? -1 : 0);
  } else if (strcmp(step, "connect") == 0) {
    Report(step, Connect());
  } else if (strncmp(step, "write:", 6) == 0) {
    buffer[4] = 0x10;
    Report(step, write(device, buffer, count));
  } else if (strncmp(step, "read:", 5) == 0) {
    Report(step, read(device, buffer, count));
  } else if (strncmp(step, "exchange:", 9) == 0) {
    Report(step, Exchanges(count));
  } else if (strncmp(step, "pieces:", 7) == 0) {
    Report(step, Pieces(count));
  } else if (strcmp(step, "badread") == 0) {
    Report(step, read(device, nowhere, 16));
  } else if (strcmp(step, "badwrite") == 0) {
    Report(step, write(device, nowhere, 16));
  } else if (strcmp(step, "close") == 0) {
    Report(step, close(device));
  } else if (strcmp(step, "child") == 0) {
    Report(step, InChild(self));
  } else if (strcmp(step, "log") == 0) {
    Report(step, Log("a line\n"));
  } else if (strcmp(step, "killparent") == 0) {
    Report(step, kill(getppid(), SIGKILL));
    usleep(200000);
  } else if (strncmp(step, "raise:", 6) == 0) {
    raise((int)count);
  } else if (strncmp(step, "exit:", 5) == 0) {
    exit((int)count);
  } else {
    fprintf(stderr, "unknown step '%s'\n", step);
    return 98;
  }
  return 0;
}

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const int status = Step(argv[0], argv[i]);
    if (status != 0) return status;
  }
  return 0;
}
