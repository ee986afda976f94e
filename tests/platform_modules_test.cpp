#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/posix/module_list.h"
#include "platform/test_switches.h"

// PLATFORM_TEST_LIBRARY is the path of the library made from platform_test_library.cpp.

namespace {

namespace fs = std::filesystem;

std::u16string FileName(HMODULE module)
{
    WCHAR path[1024];
    const DWORD length = GetModuleFileNameW(module, path, 1024);
    return std::u16string(path, length);
}

template <class Function>
Function* Get(HMODULE module, LPCSTR name)
{
    return reinterpret_cast<Function*>(GetProcAddress(module, name));
}

// Runs at the beginning of this thread's calls of the loader.
thread_local std::function<void()> atLoaderCall;

int detaches = 0;
bool lastDetachHadGlobals = false;

class PlatformModules : public testing::Test {
protected:
    PlatformModules()
    {
        std::string pattern = (fs::temp_directory_path() / "platform_test_XXXXXX").string();
        folder = fs::canonical(mkdtemp(pattern.data()));
        detaches = 0;
    }
    ~PlatformModules() override
    {
        fs::current_path(startFolder);
        fs::remove_all(folder);
        test_switches::Reset();
    }
    // A copy of the test library, so that each test loads a library of its own.
    std::string Copy(const std::string& name) const
    {
        fs::copy_file(PLATFORM_TEST_LIBRARY, folder / name);
        return folder / name;
    }

    const fs::path startFolder = fs::current_path();
    fs::path folder;
};

TEST_F(PlatformModules, LoadingAttachesOnceAndTheLastFreeDetaches)
{
    const std::u16string path = ToUtf16(Copy("Farlink.dll"));
    const HMODULE module = LoadLibraryW(path.c_str());
    ASSERT_NE(nullptr, module);
    EXPECT_EQ(module, LoadLibraryW(path.c_str()));
    EXPECT_TRUE(Get<bool()>(module, "WasAttachedWithGlobals")());
    EXPECT_EQ(module, Get<HMODULE()>(module, "OwnModule")());
    EXPECT_EQ(path, Get<LPCWSTR()>(module, "PathAtAttach")());
    EXPECT_TRUE(DisableThreadLibraryCalls(module));
    EXPECT_EQ(nullptr, GetProcAddress(module, "DllEntryPoint"));
    EXPECT_EQ(ERROR_PROC_NOT_FOUND, GetLastError());
    EXPECT_EQ(nullptr, GetProcAddress(module, "Sleep"));  // what the library needs is not its own

    Get<void(void (*)(bool, bool))>(module, "Observe")([](bool globalsAlive, bool processEnds) {
        detaches += processEnds ? 100 : 1;
        lastDetachHadGlobals = globalsAlive;
    });
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_EQ(0, detaches);
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_EQ(1, detaches);
    EXPECT_TRUE(lastDetachHadGlobals);

    EXPECT_FALSE(FreeLibrary(module));
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, GetLastError());
    EXPECT_EQ(0u, FileName(module).size());
    EXPECT_EQ(nullptr, GetProcAddress(module, "OwnModule"));
}

// A host may load by a relative name, change its folder, and load another copy at the same address.
TEST_F(PlatformModules, AModuleKeepsTheNameUnderWhichItWasLoaded)
{
    for (const std::string subfolder : {"first", "second"}) {
        fs::create_directory(folder / subfolder);
        const std::string path = Copy(subfolder + "/Same.dll");
        fs::current_path(folder / subfolder);
        void* opened = dlopen("./Same.dll", RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(nullptr, opened);
        fs::current_path("/");
        const HMODULE module = reinterpret_cast<HMODULE (*)()>(dlsym(opened, "OwnModule"))();
        EXPECT_EQ(path, ToUtf8(FileName(module)));
        dlclose(opened);
    }
    fs::create_directories(folder / "elsewhere/inner");
    fs::create_directory_symlink(folder / "elsewhere/inner", folder / "link");
    const std::string besideTarget = Copy("elsewhere/Farlink.dll");
    const HMODULE found = LoadLibraryW(ToUtf16((folder / "link/../Farlink.dll").string()).c_str());
    EXPECT_TRUE(fs::equivalent(besideTarget, FileName(found))) << ToUtf8(FileName(found));
    FreeLibrary(found);
    fs::create_symlink(folder / "first/Same.dll", folder / "Third.dll");
    const HMODULE linked = LoadLibraryW(ToUtf16((folder / "Third.dll").string()).c_str());
    EXPECT_EQ((folder / "Third.dll").string(), ToUtf8(FileName(linked)));
    FreeLibrary(linked);
}

// A library that attaches asks for its path with the loader's lock held, and has to get it while another
// thread still waits for that lock.
TEST_F(PlatformModules, NothingOfTheLoaderIsCalledUnderALockOfTheLayer)
{
    const HMODULE module = LoadLibraryW(ToUtf16(Copy("Farlink.dll")).c_str());
    posix_layer::ForgetModulePath(module);
    std::vector<std::future<void>> attaching;  // a future's end would wait for what this thread holds
    atLoaderCall = [&] {
        attaching.push_back(std::async(std::launch::async, [] { posix_layer::ForgetModulePath(nullptr); }));
        EXPECT_EQ(std::future_status::ready, attaching.back().wait_for(std::chrono::seconds(5)));
    };
    EXPECT_NE(u"", FileName(module));
    atLoaderCall = nullptr;
    EXPECT_FALSE(attaching.empty());
    FreeLibrary(module);
}

TEST_F(PlatformModules, TooSmallABufferGetsACutTextWithoutATerminator)
{
    const HMODULE program = GetModuleHandleW(nullptr);
    const std::u16string path = FileName(nullptr);
    EXPECT_EQ(fs::read_symlink("/proc/self/exe").string(), ToUtf8(path));
    EXPECT_EQ(path, FileName(program));
    std::u16string buffer(path.size() + 1, u'?');
    EXPECT_EQ(path.size(), GetModuleFileNameW(program, buffer.data(), static_cast<DWORD>(path.size())));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetLastError());
    EXPECT_EQ(path + u'?', buffer);
    EXPECT_EQ(nullptr, GetModuleHandleW(TEXT("ws2_32.dll")));
}

TEST_F(PlatformModules, TheEndOfTheProcessIsToldFromAnUnload)
{
    const std::u16string path = ToUtf16(Copy("Farlink.dll"));
    const auto end = [&] {
        const HMODULE module = LoadLibraryW(path.c_str());
        Get<void(void (*)(bool, bool))>(module, "Observe")([](bool globalsAlive, bool processEnds) {
            std::fputs(globalsAlive && processEnds ? "the process ends" : "wrong", stderr);
        });
        std::exit(0);
    };
    EXPECT_EXIT(end(), testing::ExitedWithCode(0), "^the process ends$");
}

}  // namespace

// Stands in front of the loader's own.
extern "C" int dladdr(const void* address, Dl_info* info) noexcept
{
    static const auto real = reinterpret_cast<decltype(&dladdr)>(dlsym(RTLD_NEXT, "dladdr"));
    if (atLoaderCall)
        atLoaderCall();
    return real(address, info);
}
