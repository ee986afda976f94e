#include "farlink/run_tool.h"
#include "spooler/spooler.h"

int main(int argc, char** argv)
{
    const int status = farlink::RunTool(argc, argv);
    (void)ShutdownSpooler();
    return status;
}
