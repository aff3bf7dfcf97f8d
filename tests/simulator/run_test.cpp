#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

std::string Content(const std::filesystem::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

class RunTest : public testing::Test {
 protected:
  RunTest() {
    char path[] = "/tmp/run_test.XXXXXX";
    folder = mkdtemp(path);
    // What zulisim leaves behind would show here.
    setenv("TMPDIR", (folder / "tmp").c_str(), 1);
    std::filesystem::create_directory(folder / "tmp");
  }
  ~RunTest() override { std::filesystem::remove_all(folder); }

  Outcome Shell(const std::string& command) {
    // Without what the test runner leaves open, the program's descriptors begin at 3.
    const std::string full = "exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; " + command + " >" +
                             (folder / "out").string() + " 2>" + (folder / "err").string();
    const int status = std::system(full.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Content(folder / "out"),
            Content(folder / "err")};
  }
  Outcome Run(const std::string& options, const std::string& steps) {
    return Shell(ZULISIM " run " + options + " -- " DEVICE_PROGRAM " " + steps);
  }
  bool NothingIsLeft() { return std::filesystem::is_empty(folder / "tmp"); }

  std::filesystem::path folder;
};

TEST_F(RunTest, a_program_exchanges_and_the_transcript_shows_it) {
  const Outcome run = Run(
      "--reply kalo:0x10=status:0x80000001,private:00112233",
      "open connect write:64 read:4096 read:16 read:16 badwrite write:5000 write:24 badread close");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(
      run.out,
      "open: 0\nconnect: 4096\nwrite:64: 64\nread:4096: 64\nread:16: 4\nread:16: errno 11\n"
      "badwrite: errno 14\nwrite:5000: errno 90\nwrite:24: 24\nbadread: errno 14\nclose: 0\n");
  EXPECT_EQ(
      run.err,
      "   1  fd 3   -     open     ok\n"
      "   2  fd 3   KALO  connect  ok  maximum 4096 bytes, version 1\n"
      "   3  fd 3   KALO  write    64 bytes  command 0x10\n"
      "   4  fd 3   KALO  read     64 of 4096 bytes  command 0x10  status 0x80000001\n"
      "   5  fd 3   KALO  read     4 of 16 bytes  private data  command 0x10\n"
      "   6  fd 3   KALO  read     failed  EAGAIN  16 bytes  (no message is pending)\n"
      "   7  fd 3   KALO  write    failed  EFAULT  16 bytes  (the buffer is null or not readable)\n"
      "   8  fd 3   KALO  write    failed  EMSGSIZE  5000 bytes  (longer than KALO's maximum of "
      "4096 "
      "bytes)\n"
      "   9  fd 3   KALO  write    24 bytes  command 0x10\n"
      "  10  fd 3   KALO  read     16 bytes  command 0x10  status 0x80000001  (cut: the message "
      "has "
      "24 bytes)\n"
      "  11  fd 3   KALO  close    ok\n");
  EXPECT_TRUE(NothingIsLeft());
}

TEST_F(RunTest, a_device_that_is_lost_comes_back_when_the_scenario_says_so) {
  const Outcome run = Run("-q --lose write:1,opens=1,errno=ENOENT --fault close:2=EIO",
                          "open connect write:20 close open open connect write:20 read:20 close");
  EXPECT_EQ(run.out,
            "open: 0\nconnect: 4096\nwrite:20: errno 19\nclose: 0\nopen: errno 2\nopen: 0\n"
            "connect: 4096\nwrite:20: 20\nread:20: 20\nclose: errno 5\n");
  EXPECT_EQ(run.err, "");
}

TEST_F(RunTest, forked_and_executed_programs_share_the_device) {
  const Outcome run = Run("", "open connect child read:20 close");
  EXPECT_THAT(run.out, HasSubstr("write:20: 20\nclose: 0\nchild: 0\nread:20: 20\nclose: 0\n"));
  // The child's close is not the last one.
  EXPECT_THAT(run.err, EndsWith("   5  fd 3   KALO  close    ok\n"));
}

TEST_F(RunTest, a_program_that_ends_without_a_close_is_closed_by_the_kernel) {
  const Outcome run = Run("", "open connect raise:9");
  EXPECT_EQ(run.status, 128 + 9);
  EXPECT_THAT(run.err, EndsWith("close    ok  (the program ended without a close)\n"));
  EXPECT_TRUE(NothingIsLeft());
}

TEST_F(RunTest, the_end_of_the_engine_is_a_lost_device) {
  // The pipe ends when the program does, which outlives zulisim here.
  const Outcome run = Shell(ZULISIM " run -q -- " DEVICE_PROGRAM
                                    " open connect write:20 killparent read:20 write:20 close open"
                                    " | cat");
  EXPECT_THAT(run.out,
              EndsWith("read:20: errno 19\nwrite:20: errno 19\nclose: 0\nopen: errno 19\n"));
}

TEST_F(RunTest, the_log_and_the_transcript_land_where_they_are_sent) {
  const std::string root = (folder / "root").string();
  const std::string file = (folder / "transcript").string();
  const Outcome run = Run("-q --root " + root + " --transcript " + file, "log open log exit:7");
  EXPECT_EQ(run.status, 7);
  EXPECT_EQ(Content(root + "/data/Marvoleth.log"), "a line\na line\n");
  // The transcript's own file is none of the program's descriptors.
  EXPECT_THAT(Content(file), StartsWith("   1  fd 3   -     open     ok\n"));
  EXPECT_TRUE(std::filesystem::is_directory(root + "/etc"));
  EXPECT_TRUE(NothingIsLeft());
}

TEST_F(RunTest, signals_reach_the_program_and_nothing_is_left) {
  // A reader of the transcript that ends first ends nobody else.
  Shell("{ " ZULISIM " run -- " DEVICE_PROGRAM
        " open connect write:20 read:20 exit:3 2>&1 >/dev/null; echo $? >" +
        (folder / "status").string() + "; } | true");
  EXPECT_EQ(Content(folder / "status"), "3\n");
  const Outcome ended = Shell("sh -c '" ZULISIM
                              " run -q -- sleep 20 & sleep 0.2; kill -TERM $!; "
                              "wait $!; echo $?'");
  EXPECT_EQ(ended.out, "143\n");
  EXPECT_TRUE(NothingIsLeft());
}

TEST_F(RunTest, what_cannot_be_served_is_refused_before_it_starts) {
  std::ofstream(folder / "text") << "no program\n";
  std::ofstream(folder / "script") << "#!/nowhere/sh\n";
  std::filesystem::permissions(folder / "text", std::filesystem::perms::owner_all);
  std::filesystem::permissions(folder / "script", std::filesystem::perms::owner_all);
  const std::string run = ZULISIM " run ";
  const struct {
    std::string command;
    int status;
    const char* message;
  } cases[] = {
      {run + "-- no_such_program", 127, "'no_such_program' is not in any folder of PATH"},
      {run + "-- ./no_such_program", 127, "does not exist"},
      {run + "-- /etc/passwd", 126, "no file that may be executed"},
      {run + "-- " + (folder / "text").string(), 126, "neither a program nor a script"},
      {run + "-- " + (folder / "script").string(), 127, "/nowhere/sh"},
      {run + "-- /sbin/ldconfig", 126, "statically linked"},
      {run, 125, "the program is missing"},
      {run + "--fault read:1=EFOO -- " DEVICE_PROGRAM, 125, "--fault: 'read:1=EFOO': 'EFOO'"},
      {run + "--root /proc/none -- " DEVICE_PROGRAM, 125, "'/proc/none' cannot be used"},
      {run + "--transcript /none/t -- " DEVICE_PROGRAM, 125, "'/none/t' cannot be written"},
      {ZULISIM, 125, "subcommand"},
      {ZULISIM " run --scenario /none -- true", 125, "'/none' cannot be read"},
      {ZULISIM " record -- true", 125, "--output is required"},
      {ZULISIM " record -o /none/r --engine -- true", 125, "'/none/r' cannot be written"},
      {ZULISIM " record -o r --from /dev/none -- true", 125, "--engine or a scenario records"},
      {ZULISIM " record -o r --from x --fault open:1=EIO -- true", 125, "takes no instructions"},
      {ZULISIM " replay /etc/passwd -- true", 125, "/etc/passwd:1:1: no recording"},
      {ZULISIM " check /none", 1, "'/none' cannot be read"},
  };
  for (const auto& each : cases) {
    const Outcome outcome = Shell(each.command);
    EXPECT_EQ(outcome.status, each.status) << each.command;
    EXPECT_THAT(outcome.err, HasSubstr(each.message)) << each.command;
  }
  EXPECT_TRUE(NothingIsLeft());
}

TEST_F(RunTest, a_run_that_was_recorded_is_replayed_and_a_divergence_shows) {
  const std::string file = (folder / "recording").string();
  const std::string program = " -- " DEVICE_PROGRAM " open connect write:20 read:20 child read:64";
  // The recorder finds its device where any program would: here it is another engine's.
  const Outcome run =
      Shell(ZULISIM " run --lose read:2 -- " ZULISIM " record -q -o " + file + program);
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, HasSubstr("the device is lost at read 2"));
  EXPECT_THAT(Content(file), HasSubstr("#1  read 64  -> ENODEV  in 0."));
  EXPECT_EQ(Shell(ZULISIM " check " + file).out, file + ": a recording of 7 operations\n");

  const Outcome replay = Shell(ZULISIM " replay -q " + file + program);
  EXPECT_EQ(replay.status, 0);
  EXPECT_EQ(replay.out, run.out);
  EXPECT_EQ(replay.err, "zulisim: all 7 operations of '" + file + "' were replayed\n");

  const Outcome other =
      Shell(ZULISIM " replay -q " + file + " -- " DEVICE_PROGRAM " open connect write:21 exit:0");
  EXPECT_EQ(other.status, 124);
  EXPECT_THAT(other.err,
              HasSubstr("at operation 3 (line 11) on connection #1\n  expected  write 20 "
                        "bytes, command 0x10\n  got       write 21 bytes, command 0x10\n"));

  std::filesystem::resize_file(file, std::filesystem::file_size(file) - 60);
  const Outcome cut = Shell(ZULISIM " replay -q " + file + program);
  EXPECT_EQ(cut.status, 123);
  EXPECT_THAT(cut.err, HasSubstr("is cut behind operation 6"));
  EXPECT_TRUE(NothingIsLeft());
}

TEST_F(RunTest, the_preload_library_brings_nothing_and_shows_nothing_of_its_own) {
  const Outcome needed = Shell("readelf -d " ZULISIM_PRELOAD " | grep NEEDED");
  EXPECT_THAT(needed.out, HasSubstr("libc.so.6"));
  EXPECT_THAT(needed.out, Not(HasSubstr("++")));
  const Outcome shown = Shell("nm -D --defined-only " ZULISIM_PRELOAD " | grep ' _Z'");
  EXPECT_EQ(shown.out, "");
  EXPECT_THAT(Shell("nm -D --defined-only " ZULISIM_PRELOAD).out, HasSubstr(" T read\n"));
}

}  // namespace
