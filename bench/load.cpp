// Measures what it costs to load a library. For each path, prints the median time of dlopen in a
// fresh process in microseconds, and the memory of the library's mappings afterwards: resident KiB
// and private dirty KiB.

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr int kRuns = 41;

struct Load {
  double microseconds;
  long residentKib;
  long dirtyKib;
};

// Adds the sizes of a file's mappings from /proc/self/smaps.
void MeasureMemory(const std::string& file, Load& load) {
  std::ifstream maps("/proc/self/smaps");
  bool ours = false;
  for (std::string line; std::getline(maps, line);) {
    std::istringstream words(line);
    std::string name;
    long kib = 0;
    words >> name;
    if (name.back() != ':') ours = line.find(file) != std::string::npos;
    if (!ours || !(words >> kib)) continue;
    if (name == "Rss:") load.residentKib += kib;
    if (name == "Private_Dirty:") load.dirtyKib += kib;
  }
}

Load MeasureLoad(const std::string& path) {
  const auto start = std::chrono::steady_clock::now();
  if (dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL) == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    std::exit(1);
  }
  const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - start;
  Load load{time.count(), 0, 0};
  MeasureMemory(path.substr(path.rfind('/') + 1), load);
  return load;
}

Load LoadInChild(const std::string& path) {
  int ends[2];
  Load load{};
  if (pipe(ends) != 0) std::exit(1);
  const pid_t child = fork();
  if (child == 0) {
    load = MeasureLoad(path);
    _exit(write(ends[1], &load, sizeof load) == sizeof load ? 0 : 1);
  }
  close(ends[1]);
  const bool reported = read(ends[0], &load, sizeof load) == sizeof load;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  if (!reported) std::exit(1);
  return load;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::vector<Load> loads;
    for (int run = 0; run < kRuns; ++run) loads.push_back(LoadInChild(argv[i]));
    std::sort(loads.begin(), loads.end(),
              [](const Load& a, const Load& b) { return a.microseconds < b.microseconds; });
    const Load& median = loads[kRuns / 2];
    std::printf("%s %.0f %ld %ld\n", argv[i], median.microseconds, median.residentKib,
                median.dirtyKib);
  }
  return 0;
}
