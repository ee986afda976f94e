#include <cstdio>
#include <string>
#include <vector>

#include "farlink/run_tool.h"
#include "platform/platform.h"

#include <shellapi.h>

// The narrow command line that main would get has lost what the system's code page doesn't know.
int main()
{
    int count = 0;
    LPWSTR* const words = CommandLineToArgvW(GetCommandLineW(), &count);
    if (words == nullptr)
        return 1;
    std::vector<std::string> texts;
    for (int i = 0; i < count; ++i)
        texts.push_back(ToUtf8(words[i]));
    LocalFree(words);

    std::vector<const char*> arguments;
    for (const std::string& text : texts)
        arguments.push_back(text.c_str());
    const UINT codePage = GetConsoleOutputCP();
    SetConsoleOutputCP(CP_UTF8);
    const int status = farlink::RunTool(count, arguments.data());
    std::fflush(stdout);
    SetConsoleOutputCP(codePage);
    return status;
}
