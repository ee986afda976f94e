#include "admin/record_io.h"
#include "admin/xcv_handler.h"
#include "diagnostics/module_file.h"
#include "ports/display_names.h"

namespace {

constexpr std::size_t kMaxAboutLength = 1999;

std::size_t SizeInBytes(const WideString& text)
{
    return (text.size() + 1) * sizeof(WCHAR);
}

WideString ModuleBaseName()
{
    WCHAR baseName[kModuleBaseNameSize];
    getModuleBaseName(baseName);
    return baseName;
}

WideString AboutText()
{
    WideString text = TEXT("Version 1.1.2.18\nBuild 1252873320\n");
    text.append(Name).append(TEXT("\n")).append(Description).append(TEXT("\n"));
    text.append(ModuleBaseName()).append(TEXT(".dll"));
    return text.substr(0, kMaxAboutLength);
}

}  // namespace

DWORD krelPortMonitorXcvHandler::getMonitorUI(const krelXcvBuffers& buffers)
{
    const WideString library = ModuleBaseName() + TEXT("UI.dll");
    StoreNeeded(buffers, SizeInBytes(library));
    if (buffers.outputSize < SizeInBytes(library))
        return ERROR_INSUFFICIENT_BUFFER;
    if (buffers.output == nullptr)
        return ERROR_INVALID_PARAMETER;
    WriteText(buffers.output, library);
    return ERROR_SUCCESS;
}

DWORD krelPortMonitorXcvHandler::xcvGetAboutString(const krelXcvBuffers& buffers)
{
    const WideString text = AboutText();
    if (buffers.outputSize < SizeInBytes(text)) {
        StoreNeeded(buffers, SizeInBytes(text));
        return buffers.outputNeeded != nullptr ? ERROR_INSUFFICIENT_BUFFER : ERROR_INVALID_PARAMETER;
    }
    if (buffers.output == nullptr)
        return ERROR_INVALID_PARAMETER;
    WriteText(buffers.output, text);
    return ERROR_SUCCESS;
}

DWORD krelPortMonitorXcvHandler::xcvGetVersionInfo(const krelXcvBuffers&)
{
    return ERROR_NOT_SUPPORTED;
}

DWORD krelPortMonitorXcvHandler::xcvGetDebug(const krelXcvBuffers&)
{
    return ERROR_SUCCESS;
}
