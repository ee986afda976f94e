#include "tests/windows/checks.h"

#include <cstdio>

#include "platform/platform.h"

namespace checks {

namespace {

int passedCount = 0;
int failedCount = 0;

}  // namespace

bool Check(bool passed, const std::string& name, const std::string& detail)
{
    ++(passed ? passedCount : failedCount);
    if (passed)
        std::printf("ok %s\n", name.c_str());
    else
        std::printf("FAILED %s: %s\n", name.c_str(), detail.c_str());
    std::fflush(stdout);  // what was seen before a crash stays
    return passed;
}

bool CheckEqual(unsigned long long word, unsigned long long wanted, const std::string& name)
{
    return Check(word == wanted, name, std::to_string(word) + ", not " + std::to_string(wanted));
}

int Finish()
{
    std::printf("%d passed, %d failed\n", passedCount, failedCount);
    std::fflush(stdout);
    return failedCount == 0 && passedCount > 0 ? 0 : 1;
}

std::string Narrow(const wchar_t* text)
{
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), size, nullptr, nullptr);
    utf8.pop_back();
    return utf8;
}

std::wstring Wide(const char* text)
{
    const int size = MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0);
    std::wstring utf16(static_cast<std::size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text, -1, utf16.data(), size);
    utf16.pop_back();
    return utf16;
}

}  // namespace checks
