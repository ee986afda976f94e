#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/platform.h"
#include "platform/test_switches.h"

namespace {

namespace fs = std::filesystem;

// Each test works in a folder of its own.
class PlatformFiles : public testing::Test {
protected:
    PlatformFiles()
    {
        std::string pattern = (fs::temp_directory_path() / "platform_test_XXXXXX").string();
        folder = mkdtemp(pattern.data());
    }
    ~PlatformFiles() override
    {
        test_switches::Reset();
        fs::remove_all(folder);
    }
    std::string Path(const std::string& name) const { return folder / name; }
    HANDLE Open(const std::string& name, DWORD disposition = OPEN_ALWAYS,
                SECURITY_ATTRIBUTES* security = nullptr, DWORD share = FILE_SHARE_READ) const
    {
        return CreateFileW(ToUtf16(Path(name)).c_str(), GENERIC_WRITE, share, security, disposition, 0,
                           nullptr);
    }
    std::string Content(const std::string& name) const
    {
        std::ostringstream text;
        text << std::ifstream(Path(name), std::ios::binary).rdbuf();
        return text.str();
    }
    void Make(const std::string& name, const std::string& content) const
    {
        std::ofstream(Path(name), std::ios::binary) << content;
    }
    std::u16string Profile(const std::string& content, LPCWSTR key = TEXT("Name"), DWORD size = 2048) const
    {
        Make("Farlink.ini", content);
        std::u16string value(size + 1, u'?');
        const DWORD length = GetPrivateProfileStringW(TEXT("Farlink"), key, TEXT("default \t"), value.data(),
                                                      size, ToUtf16(Path("Farlink.ini")).c_str());
        EXPECT_EQ(0, value[length]);
        EXPECT_EQ(u'?', value[size]);
        value.resize(length);
        return value;
    }

    fs::path folder;
};

void Write(HANDLE file, const std::string& text)
{
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr));
    EXPECT_EQ(text.size(), written);
}

TEST_F(PlatformFiles, WhatIsMissingIsNamed)
{
    EXPECT_EQ(INVALID_HANDLE_VALUE, Open("none", OPEN_EXISTING));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, GetLastError());
    EXPECT_EQ(INVALID_HANDLE_VALUE, Open("no folder/none"));
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, GetLastError());
}

TEST_F(PlatformFiles, ASecondWriterIsRefusedAndTheRefusalHarmsNothing)
{
    const HANDLE first = Open("log");
    Write(first, "line");
    EXPECT_EQ(fs::perms{0600}, fs::status(Path("log")).permissions()) << "nobody was let in";
    EXPECT_EQ(INVALID_HANDLE_VALUE, Open("log", CREATE_ALWAYS));
    EXPECT_EQ(ERROR_SHARING_VIOLATION, GetLastError());
    EXPECT_EQ("line", Content("log"));

    // A process forked meanwhile shares the descriptor, and does not keep the file locked.
    int wait[2];
    ASSERT_EQ(0, pipe(wait));
    const pid_t child = fork();
    if (child == 0) {
        char byte = 0;
        close(wait[1]);
        (void)!read(wait[0], &byte, 1);
        _exit(0);
    }
    CloseHandle(first);
    const HANDLE second = Open("log", OPEN_ALWAYS, nullptr, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_NE(INVALID_HANDLE_VALUE, second);
    const HANDLE third = Open("log", OPEN_ALWAYS, nullptr, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_NE(INVALID_HANDLE_VALUE, third);
    CloseHandle(second);
    CloseHandle(third);
    CloseHandle(Open("log", CREATE_ALWAYS));
    EXPECT_EQ("", Content("log"));
    close(wait[0]);
    close(wait[1]);
    waitpid(child, nullptr, 0);
}

// The exit status of a child process that does this; -1 when a signal ends it.
template <class Work>
int StatusOfChild(Work work)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(work());
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(PlatformFiles, AFailedWriteLeavesNothingOfItselfAndNoSignalEndsTheProcess)
{
    EXPECT_EQ(0, StatusOfChild([&] {
                  const rlimit atMost{6, RLIM_INFINITY};
                  setrlimit(RLIMIT_FSIZE, &atMost);
                  const HANDLE file = Open("log");
                  Write(file, "line");
                  DWORD written = 99;
                  const BOOL all = WriteFile(file, "cut line", 8, &written, nullptr);
                  const DWORD error = GetLastError();
                  const rlimit any{RLIM_INFINITY, RLIM_INFINITY};
                  setrlimit(RLIMIT_FSIZE, &any);
                  Write(file, "+next");  // there is room again
                  return all || error != ERROR_DISK_FULL ? 99 : static_cast<int>(written);
              }));
    EXPECT_EQ("line+next", Content("log"));

    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    const auto shout = [&] {
        signal(SIGPIPE, SIG_DFL);
        dup2(ends[1], STDERR_FILENO);
        OutputDebugStringA("unwanted");
        setenv("FARLINK_DEBUG_OUTPUT", "1", 1);
        OutputDebugStringA("wanted");
        return 0;
    };
    EXPECT_EQ(0, StatusOfChild(shout));
    char heard[32] = {};
    EXPECT_EQ(6, read(ends[0], heard, sizeof heard));
    EXPECT_STREQ("wanted", heard);
    close(ends[0]);
    EXPECT_EQ(0, StatusOfChild(shout));  // the reader is gone
    close(ends[1]);
}

TEST_F(PlatformFiles, OnlyRegularFilesOfOneNameAreWritten)
{
    Make("victim", "precious");
    fs::create_symlink(Path("victim"), Path("link"));
    fs::create_symlink(Path("missing"), Path("dangling"));
    fs::create_directory(Path("folder"));
    fs::create_hard_link(Path("victim"), Path("second name"));
    ASSERT_EQ(0, mkfifo(Path("pipe").c_str(), 0600));
    for (const std::string name :
         {"link", "dangling", "second name", "folder", "pipe", "../../../dev/null"}) {
        SCOPED_TRACE(name);
        SetLastError(0);
        EXPECT_EQ(INVALID_HANDLE_VALUE, Open(name, CREATE_ALWAYS));
        EXPECT_EQ(ERROR_ACCESS_DENIED, GetLastError());
    }
    EXPECT_EQ("precious", Content("victim"));
    EXPECT_FALSE(fs::exists(Path("missing")));
}

TEST_F(PlatformFiles, ProfileValuesAreFoundInAllKindsOfFiles)
{
    using namespace std::string_literals;
    const struct {
        std::string content;
        std::u16string expected;
    } cases[] = {
        {"", u"default"},
        {"[Farlink]\nName=plain", u"plain"},
        {"[fARLINK]\r\n  nAME\t=  blanks around \t\r\nName=second\r\n", u"blanks around"},
        {"[Other]\nName=wrong\n[Farlink]\n;Name=comment\nName=right ; stays\n", u"right ; stays"},
        {"[Farlink]\rName=mac\rDescription=x", u"mac"},
        {"[Farlink]\nName=\"  quoted \"", u"  quoted "},
        {"[Farlink]\nName='\"nested\"'", u"\"nested\""},
        {"[Farlink]\nName=\"", u"\""},
        {"[Farlink]\nName=", u""},
        {"[Farlink]\nName", u"default"},
        {"Name=outside\n[Farlink]\n[Name]\nName=inside another\n", u"default"},
        {"[Farlink\nName=unclosed", u"default"},
        {"]\n[]\n=\n[ Farlink ]\nName=a=b", u"a=b"},
        {"[Farlink]\nDescription=x\n[Other]\n[Farlink]\nName=second section", u"default"},
        {"[Farlink]\n[Farlink]\nName=second section", u"default"},
        {"\xEF\xBB\xBF[Farlink]\nName=\xC3\xA4", u"\u00E4"},
        {"[Farlink]\nName=\xE4", u"\uFFFD"},
        {"[Farlink]\nName=a\0b\nDescription=x"s, u"a\uFFFDb"},
        {"\xFF\xFE[\0F\0a\0r\0l\0i\0n\0k\0]\0\n\0N\0a\0m\0e\0=\0\xE4\0\x42\x30\n"s, u"\u00E4\u3042"},
        {"\xFE\xFF\0[\0F\0a\0r\0l\0i\0n\0k\0]\0\n\0N\0a\0m\0e\0=\0\xE4"s, u"\u00E4"},
        {"\xFF", u"default"},
        {";" + std::string(2 << 20, 'x') + "\n[Farlink]\nName=too far", u"default"},
        {"[Farlink]\nName=" + std::string(3000, 'x'), std::u16string(2047, u'x')},
    };
    for (const auto& [content, expected] : cases) {
        SCOPED_TRACE(content.substr(0, 60));
        EXPECT_EQ(expected, Profile(content));
    }
    EXPECT_EQ(u"lon", Profile("[Farlink]\nName=long", TEXT("Name"), 4));
    EXPECT_EQ(u"default", Profile("[Farlink]\nName=x", nullptr));

    WCHAR value[32];
    ASSERT_EQ(0, mkfifo(Path("pipe").c_str(), 0600));
    for (const std::string name : {"missing", "", "pipe"}) {
        EXPECT_EQ(1u, GetPrivateProfileStringW(TEXT("Farlink"), TEXT("Name"), TEXT("d"), value, 32,
                                               ToUtf16(Path(name)).c_str()));
    }
}

}  // namespace
