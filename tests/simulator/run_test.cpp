#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
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
    setenv("TMPDIR", (folder / "tmp").c_str(), 1);
    std::filesystem::create_directory(folder / "tmp");
  }
  ~RunTest() override {
    EXPECT_TRUE(std::filesystem::is_empty(folder / "tmp")) << "zulisim left something behind";
    std::filesystem::remove_all(folder);
  }

  Outcome Shell(const std::string& command) {
    // Without what the test runner leaves open, the program's descriptors begin at 3.
    const std::string full = "exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; cd " + folder.string() +
                             "; " + command + " >out 2>err";
    const int status = std::system(full.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Content(folder / "out"),
            Content(folder / "err")};
  }
  Outcome Run(const std::string& options, const std::string& steps) {
    return Shell(ZULISIM " run " + options + " -- " DEVICE_PROGRAM " " + steps);
  }

  std::filesystem::path folder;
};

TEST_F(RunTest, transcript_tells_what_happened_and_why) {
  const Outcome run =
      Run("--client kalo:max=0x12345,version=7 --reply "
          "kalo:0x10=status:0x80000001,private:001122330000000044556677,unusual"
          " --short write:4=20 --lose read:5",
          "open connect write:64 read:4096 read:16 read:16 badwrite:16 ioctl:7 write:24 badread:16"
          " write:64 read:64 exit:5");
  EXPECT_EQ(run.status, 5);
  EXPECT_EQ("\n" + run.err, R"(
   1  fd 3   -     open     ok
   2  fd 3   KALO  connect  ok  maximum 74565 bytes, version 7
   3  fd 3   KALO  write    64 bytes  command 0x10
   4  fd 3   KALO  read     64 of 4096 bytes  command 0x10  status 0x80000001
   5  fd 3   KALO  read     12 of 16 bytes  private data  command 0x10
   6  fd 3   KALO  read     failed  EAGAIN  16 bytes  (no message is pending)
   7  fd 3   KALO  write    failed  EFAULT  16 bytes  (the buffer is null or not readable)
   8  fd 3   KALO  ioctl    failed  ENOTTY  request 0x7  (the device does not know the request 0x7)
   9  fd 3   KALO  write    24 bytes  command 0x10
  10  fd 3   KALO  read     16 bytes  command 0x10  status 0x80000001  (cut: the message has 24 bytes)
  11  fd 3   KALO  write    20 of 64 bytes  command 0x10  (cut by a fault at write 4)
  12  fd 3   KALO  read     failed  ENODEV  64 bytes  (the device is lost at read 5)
  13  fd 3   KALO  close    ok  (the program ended without a close)
)");
}

TEST_F(RunTest, engine_gives_the_results_of_a_kernel_driver) {
  const struct {
    const char* options;
    const char* steps;  // each with its result
  } cases[] = {
      // What it refuses; the largest request is none of it, and moving nothing is fine.
      {"--reply kalo:0x10=status:1,body:beef --reply 'KALO:*=silent'",
       "open: 0, write:4: errno 107, read:4: errno 107, ioctl:0xC0104802: errno 25, connect:2: "
       "errno 2, connect: 4096, connect:1: errno 16, write:4097: errno 90, badwrite:4: errno 14, "
       "write:4096: 4096, write:0: 0, read:0: 0, badread:4: errno 14, write:3: 3, read:4: errno "
       "11, write:20: 20, read:4096: 18, close: 0, open: 0, connect:1: 4096, write:9: 9, "
       "write:40: 40, read:8: 8, read:40: 40, read:4: errno 11, "},
      // What fails has no other effect; what is cut is cut for good.
      {"--fault open:1=EACCES --fault ioctl:1=EINVAL --fault write:2-3=eio --fault read:1=EINTR "
       "--short write:5=20 --short read:4=3 --fault read:6-=EIO --fault close:1=EIO",
       "open: errno 13, open: 0, connect: errno 22, connect: 4096, write:31: 31, write:32: errno "
       "5, write:33: errno 5, write:34: 34, read:64: errno 4, read:64: 31, read:64: 34, write:64: "
       "20, read:64: 3, read:64: errno 11, read:64: errno 5, read:64: errno 5, close: errno 5, "},
      // A loss strikes each descriptor that is open; a close that meets it succeeds.
      {"--lose read:1,opens=2,errno=ENOENT --lose close:2",
       "open: 0, connect: 4096, open: 0, connect:1: 4096, on:3: 3, read:16: errno 19, read:16: "
       "errno 19, on:4: 4, write:20: errno 19, connect:1: errno 19, close: 0, open: errno 2, "
       "open: errno 2, open: 0, connect: 4096, write:20: 20, on:3: 3, write:20: errno 19, close: "
       "0, on:4: 4, read:20: errno 19, "},
      // Unread replies outlive a loss that the next open repairs, for the client that was asked.
      {"--lose read:1 --lose read:3 --lose read:5,drop-replies --lose read:7,opens=1",
       "open: 0, connect: 4096, write:20: 20, read:20: errno 19, close: 0, open: 0, connect: "
       "4096, read:20: 20, write:21: 21, read:21: errno 19, close: 0, open: 0, connect:1: 4096, "
       "read:21: errno 11, close: 0, open: 0, connect: 4096, write:22: 22, read:22: errno 19, "
       "close: 0, open: 0, connect: 4096, read:22: errno 11, write:23: 23, read:23: errno 19, "
       "close: 0, open: errno 19, open: 0, connect: 4096, read:23: errno 11, "},
  };
  for (const auto& each : cases) {
    const std::regex result(": (errno )?[0-9]+, ");
    const Outcome run = Run(each.options, std::regex_replace(each.steps, result, " "));
    EXPECT_EQ(std::regex_replace(run.out, std::regex("\n"), ", "), each.steps) << run.err;
  }
}

TEST_F(RunTest, what_was_asked_for_and_did_not_happen_is_named) {
  const char* const steps =
      "open connect open connect:1 on:3 write:20 read:20 on:4 write:20 read:20 on:3 write:20 "
      "read:20 "
      "write:20 read:20 on:4 write:20 read:20 on:3 write:20";
  const Outcome run =
      Run("-q --strict --fault 'write:2@fenu=EIO' --fault 'read:3-4@*:0x10=EINTR' "
          "--lose 'write:1-3@#9' --short read:1@kalo=4 --fault 'ioctl:1-3@sab=EIO' "
          "--fault 'read:1@sab=EIO' --fault 'write:4-5@#1=ENXIO' "
          "--reply kalo:0x10=at:1-2,body:11 --reply 'kalo:0x10=at:3,body:1122' "
          "--reply 'kalo:*=body:112233' --reply fenu:0x10=at:2-5",
          steps);
  EXPECT_EQ(run.status, 122);
  EXPECT_EQ(
      run.out,
      "open: 0\nconnect: 4096\nopen: 0\nconnect:1: 4096\non:3: 3\nwrite:20: 20\nread:20: 4\n"
      "on:4: 4\nwrite:20: 20\nread:20: 20\non:3: 3\nwrite:20: 20\nread:20: errno 4\n"
      "write:20: 20\nread:20: errno 4\non:4: 4\nwrite:20: errno 5\nread:20: errno 11\non:3: 3\n"
      "write:20: errno 6\n");
  EXPECT_EQ(run.err,
            "zulisim: --lose write:1-3@#9: the loss did not happen in 0 writes\n"
            "zulisim: --fault ioctl:1-3@sab=EIO: the fault did not happen in 0 ioctls\n"
            "zulisim: --fault read:1@sab=EIO: the fault did not happen in 0 reads\n"
            "zulisim: --fault write:4-5@#1=ENXIO: the fault happened 1 of 2 times in 4 writes\n"
            "zulisim: --reply kalo:*=body:112233: the reply did not happen in 3 requests\n"
            "zulisim: --reply fenu:0x10=at:2-5: the reply did not happen in 1 request\n");
}

TEST_F(RunTest, recording_is_kept_private_and_can_be_redacted) {
  const std::string record = ZULISIM " record -q -o r --engine ";
  const std::string steps = DEVICE_PROGRAM " open connect write:64 read:64 close";
  EXPECT_EQ(Shell(record + "true; test ! -e r").status, 0);
  EXPECT_EQ(Shell("umask 0; " + record + "--redact " + steps).status, 0);
  EXPECT_EQ(std::filesystem::status(folder / "r").permissions(), std::filesystem::perms{0600});
  const std::string kept = Content(folder / "r");
  const std::string body =
      "redacted 48 17b0761f87b081d5cf10757ccc89f12be355c70e2e29df288b65b30710dcbcd1\n";
  EXPECT_THAT(kept,
              AllOf(HasSubstr("  > " + body), HasSubstr("  < " + body), Not(HasSubstr(" write:"))));
  const Outcome again = Shell(record + steps);
  EXPECT_EQ(again.status, 125);
  EXPECT_THAT(again.err, HasSubstr("'r' is there already: name another, or --force"));
  EXPECT_EQ(Shell(record + "--force true").status, 0);
  EXPECT_EQ(Content(folder / "r"), kept);
  EXPECT_EQ(Shell(ZULISIM " check r").out, "r: a redacted recording of 5 operations\n");
  EXPECT_THAT(Shell(ZULISIM " replay r true").err, HasSubstr("'r' is redacted"));
}

TEST_F(RunTest, what_a_file_names_controls_no_terminal) {
  std::ofstream(folder / "s.toml") << "[[client]]\nname = 'KALO'\nguid = "
                                      "'{00000000-0000-0000-0000-000000000001}'\n"
                                      "[[client]]\nname = \"\\u001b[2J\"\nguid = "
                                      "'{FBF6FCF1-96CF-4E2E-A6A6-1BAB8CBE36B1}'\n";
  const Outcome run = Run("--scenario s.toml", "open connect write:5000");
  EXPECT_THAT(run.err, AllOf(HasSubstr("  \\x1b[2J  connect  ok"), Not(HasSubstr("\x1b"))));
}

TEST_F(RunTest, forked_and_executed_programs_share_the_device) {
  const Outcome run = Run("", "open connect child:20 read:20 close");
  EXPECT_THAT(run.out, HasSubstr("write:20: 20\nclose: 0\nchild:20: 0\nread:20: 20\nclose: 0\n"));
  // The child's close is not the last one.
  EXPECT_THAT(run.err, EndsWith("  fd 3   KALO  close    ok\n"));
}

TEST_F(RunTest, slow_client_holds_up_nobody_and_its_read_ends_with_the_connection) {
  const Outcome run =
      Shell(ZULISIM
            " run --reply 'kalo:*=latency:60s' --lose write:3 -- sh -c '"
            "slow() { " DEVICE_PROGRAM
            " open connect write:20 read:20 close &"
            " until tail -n 1 out | grep -q \"write:20: 20\"; do sleep 0.1; done; sleep 0.2; }; "
            "slow; " DEVICE_PROGRAM
            " open connect:1 write:20 read:20 write:20; wait; slow; kill $!; wait $!'");
  EXPECT_THAT(run.out, HasSubstr("connect:1: 4096\nwrite:20: 20\nread:20: 20\n"));
  EXPECT_THAT(run.out, HasSubstr("\nread:20: errno 19\n"));
  EXPECT_THAT(run.err, HasSubstr("(the device was lost while a read waited)"));
  EXPECT_THAT(run.err, HasSubstr("EBADF  20 bytes  (closed while a read waited)"));
  EXPECT_THAT(run.err, HasSubstr("KALO  close    ok  (the program ended without a close)\n"));
}

TEST_F(RunTest, log_and_transcript_land_where_they_are_sent) {
  EXPECT_EQ(Shell("{ echo first; " ZULISIM " run -q --transcript /dev/stdout " DEVICE_PROGRAM
                  " exit:0; echo last; }")
                .out,
            "first\nlast\n");
  EXPECT_THAT(Run("-q --transcript -", "open").out, StartsWith("   1  fd 3   -     open     ok\n"));
  const Outcome run = Run("-q --root root --transcript transcript", "log open log exit:7");
  EXPECT_EQ(run.status, 7);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(Content(folder / "root/data/Marvoleth.log"), "a line\na line\n");
  // The transcript's own file is none of the program's descriptors.
  EXPECT_THAT(Content(folder / "transcript"), StartsWith("   1  fd 3   -     open     ok\n"));
  EXPECT_TRUE(std::filesystem::is_directory(folder / "root/etc"));
}

TEST_F(RunTest, signals_reach_the_program_and_a_closed_pipe_ends_nobody) {
  Shell("{ " ZULISIM " run -- " DEVICE_PROGRAM
        " open connect write:20 read:20 exit:3 2>&1 >/dev/null; echo $? >status; } | true");
  EXPECT_EQ(Content(folder / "status"), "3\n");
  const Outcome ended =
      Shell("{ " ZULISIM " run -q -- sleep 20 & sleep 0.2; kill -TERM $!; wait $!; echo $?; }");
  EXPECT_EQ(ended.out, "143\n");
}

TEST_F(RunTest, what_cannot_be_served_is_refused_before_it_starts) {
  Shell(
      "echo no program >text; echo '#!/nowhere/sh' >script; chmod +x text script; mkdir loop; ln "
      "-s / loop/data");
  const struct {
    int status;
    const char* arguments;
    const char* message;
  } cases[] = {
      {127, "run -- no_such_program", "'no_such_program' is not in any folder of PATH"},
      {127, "run -- ./no_such_program", "does not exist"},
      {126, "run -- /etc/passwd", "is not a file that may be executed"},
      {126, "run -- ./text", "neither a program nor a script"},
      {127, "run -- ./script", "/nowhere/sh"},
      {126, "run -- /sbin/ldconfig", "statically linked"},
      {125, "run", "the program is missing"},
      {125, "run --fault read:1=EOI -- true",
       "--fault: 'read:1=EOI': 'EOI' is not a valid errno name; did you mean 'EIO'?"},
      {125, "run --trace t --report ./t -- true", "named by --trace as well"},
      {125, "run --lsoe read:1 true", "unknown option '--lsoe'; did you mean '--lose'?"},
      {125, "replay x", "write 'zulisim replay [OPTIONS] FILE PROGRAM"},
      {125, "run --root loop true", "symbolic link"},
      {125, "run --reply 'kalo:*=hold' true", "'zulisim serve' can be told to"},
      {125, "tell x counts", "'x' cannot be told anything"},
      {125, "run --root '' -- true", "--root: a name is expected"},
      {125, "record -q -o /dev/full --engine " DEVICE_PROGRAM " open",
       "'/dev/full' is not complete"},
      {125, "run --root /proc/none -- true", "'/proc/none' cannot be used"},
      {125, "run --scenario /none -- true", "'/none' cannot be read"},
      {125, "record -o /none/r --engine -- true", "'/none/r' cannot be written"},
      {125, "record -o r --from /dev/none -- true", "--engine or a scenario records"},
      {125, "record -o r --from x --lose open:1 -- true", "takes no instructions"},
      {125, "replay /etc/passwd -- true", "/etc/passwd:1:1: not a recording"},
      {1, "check /etc/passwd /none " SCENARIOS "/echo.toml", "'/none' cannot be read"},
  };
  for (const auto& each : cases) {
    const Outcome outcome = Shell(std::string(ZULISIM " ") + each.arguments);
    EXPECT_EQ(outcome.status, each.status) << each.arguments;
    EXPECT_THAT(outcome.err, HasSubstr(each.message)) << each.arguments;
  }
}

TEST_F(RunTest, preload_library_brings_nothing_and_shows_nothing_of_its_own) {
  const Outcome names =
      Shell("{ readelf -d " ZULISIM_PRELOAD "; nm -D --defined-only " ZULISIM_PRELOAD "; }");
  EXPECT_THAT(names.out, AllOf(HasSubstr("[libc.so.6]"), Not(HasSubstr("++"))));
  EXPECT_THAT(names.out, AllOf(HasSubstr(" T read\n"), Not(HasSubstr(" _Z"))));
}

}  // namespace
