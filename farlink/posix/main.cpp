#include <unistd.h>

#include "farlink/run_tool.h"
#include "spooler/spooler.h"

namespace {

// A document on its way out is seen through to the print server's word, which takes half a minute at most.
constexpr DWORD kShutdownMs = 60000;

}  // namespace

int main(int argc, char** argv)
{
    const int status = farlink::RunTool(argc, argv);
    if (!ShutdownSpooler(kShutdownMs))
        _exit(status);  // threads still run, so nothing may be taken down under them
    return status;
}
