// The kivmp4 command as its users run it: exit codes, messages, and what it writes.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;
const std::string kDemo = std::string(KIVMP4_SAMPLES) + "/demo.mp4";

struct Ran { int exitCode; std::string text; };  // standard output and standard error

Ran Shell(const std::string& line) {
    Ran ran{-1, ""};
    FILE* pipe = popen(("exec 2>&1; " + line).c_str(), "r");
    for (int c; (c = fgetc(pipe)) != EOF;) ran.text += static_cast<char>(c);
    const int status = pclose(pipe);
    if (WIFEXITED(status)) ran.exitCode = WEXITSTATUS(status);
    return ran;
}

Ran Command(const std::string& arguments) { return Shell(KIVMP4_COMMAND " " + arguments); }

size_t Count(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) count++;
    return count;
}

// Gives each test a directory of its own, with damaged copies of the demo in it.
class CommandTest : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "kivmp4-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        directory = pattern;
        fs::copy(kDemo, Path("cut.mp4"));
        fs::resize_file(Path("cut.mp4"), fs::file_size(kDemo) * 2 / 3);
    }
    void TearDown() override { fs::remove_all(directory); }
    std::string Path(const std::string& name) const { return (directory / name).string(); }

    fs::path directory;
};

TEST_F(CommandTest, TellsByItsExitCodeAndMessageWhatWentWrong) {
    struct Case { const char* name; std::string arguments; int exitCode; const char* part; };
    const Case cases[] = {
        {"describes a file", "info " + kDemo, 0, "320 x 180"},
        {"version", "--version", 0, "kivmp4 "},
        {"no command", "", 2, "--help"},
        {"unknown option", "info --nonsense " + kDemo, 2, "--nonsense"},
        {"log level too high", "--log 5 info " + kDemo, 2, "--log"},
        {"no such track", "packets --track 2 " + kDemo, 2, "has no track 2"},
        {"missing file", "info " + Path("absent.mp4"), 3, "No such file"},
        {"directory", "info " + directory.string(), 3, "is a directory"},
        {"full device", "packets " + kDemo + " >/dev/full", 3, "standard output: cannot write"},
        {"reads what it would write", "extract " + Path("track0.h264") + " -o " + directory.string(), 3, "read from"},
        {"garbage", "--log 0 info " + Path("garbage.mp4"), 4, "garbage.mp4: is not an MP4 file"},
        {"empty", "info " + Path("empty.mp4"), 4, "is empty"},
        {"cut off", "packets " + Path("cut.mp4"), 5, "delivery stopped"},
        {"control bytes in a name", "info \"$(printf 'a\\033[2J')\"", 3, "a\\x1b[2J: cannot open"},
    };
    fs::copy(kDemo, Path("track0.h264"));
    std::ofstream(Path("garbage.mp4")) << std::string(5000, 'x');
    std::ofstream(Path("empty.mp4"));
    for (const Case& c : cases) {
        const Ran ran = Command(c.arguments);
        EXPECT_EQ(ran.exitCode, c.exitCode) << c.name << "\n" << ran.text;
        EXPECT_NE(ran.text.find(c.part), std::string::npos) << c.name << "\n" << ran.text;
    }
}

TEST_F(CommandTest, UnderstandsTimesAndLandsOnAKeyFrameNearby) {
    struct Case { const char* time; int exitCode; const char* part; };
    const Case cases[] = {
        {"2.5", 0, "pts 225000\n  track 0: 0:00:02.080, pts 187200, -0.420"}, {"0:02.9", 0, "track 0: 0:00:03.080"},
        {"0:00:03.999", 0, "pts 359910\n"}, {"97200t", 0, "track 0: 0:00:01.080, pts 97200, +0.000"},
        {"50%", 0, "pts 270000\n  track 0: 0:00:03.080"}, {"1:00:00", 0, "nowhere to go"}, {"1:60", 2, "not a time"},
        {"1:2", 2, "not a time"}, {"101%", 2, "not a time"}, {"12x", 2, "not a time"}, {"t", 2, "not a time"},
        {"1:00:00:00", 2, "not a time"}, {"9223372036854775808t", 2, "not a time"}, {"nan", 2, "not a time"},
    };
    for (const Case& c : cases) {
        const Ran ran = Command("--log 0 seek " + kDemo + " " + c.time);
        EXPECT_EQ(ran.exitCode, c.exitCode) << c.time;
        EXPECT_NE(ran.text.find(c.part), std::string::npos) << c.time << "\n" << ran.text;
    }
}

TEST_F(CommandTest, StepsThroughAllKeyFramesInBothDirections) {
    EXPECT_EQ(Count(Command("keys " + kDemo).text, " +1.000 "), 5u);
    EXPECT_EQ(Count(Command("keys --backward " + kDemo).text, " -1.000 "), 5u);
}

TEST_F(CommandTest, ExtractsStreamsThatDecodeAndKeepsWhatPrecedesDamage) {
    EXPECT_EQ(Command("extract " + kDemo + " -o " + Path("out")).exitCode, 0);
    for (const char* name : {"out/track0.h264", "out/track1.aac"})
        EXPECT_EQ(Shell("ffmpeg -v error -xerror -i " + Path(name) + " -f null - </dev/null").text, "");
    EXPECT_EQ(Command("extract " + Path("cut.mp4") + " -o " + Path("part")).exitCode, 5);
    EXPECT_GT(fs::file_size(Path("part/track0.h264")), fs::file_size(kDemo) / 3);
}

TEST_F(CommandTest, ShowsTheRealLevelOfA3DFile) {
    fs::copy(kDemo, Path("deep.m3d"));
    const std::string plain = Command("info " + kDemo).text, deep = Command("info " + Path("deep.m3d")).text;
    EXPECT_EQ(Count(plain, "  level             1.2\n"), 1u) << plain;
    EXPECT_EQ(Count(deep, "  level             1.2\n"), 1u) << deep;
    EXPECT_EQ(Count(deep, "3D"), 2u) << deep;
}

#ifdef KIVMP4_PLAYER
TEST_F(CommandTest, ExamplePlayerDeliversWhatTheCommandLists) {
    const Ran player = Shell(KIVMP4_PLAYER " " + kDemo);
    EXPECT_EQ(player.exitCode, 0) << player.text;
    EXPECT_EQ(Count(player.text, "\n") + 1, Count(Command("packets " + kDemo).text, "\n"));
    // The README shows this very program.
    EXPECT_EQ(Shell("cd " KIVMP4_SAMPLES "/.. && sed -n '/^```c$/,/^```$/p' README.md | sed '1d;$d' | cmp - examples/player.c").text, "");
}
#endif

}  // namespace
