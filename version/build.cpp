#include "version/build.h"

#include "version/farlink_version.h"

const char* FarlinkBuild()
{
    return FARLINK_BUILD;
}
