#include "platform/platform.h"

void PinModule(const void* address)
{
    HMODULE module = nullptr;
    (void)GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                             static_cast<LPCWSTR>(address), &module);
}
