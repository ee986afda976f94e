#include "farlink/json_output.h"

#include "farlink/output.h"

namespace farlink {

void PrintJson(const Json& value)
{
    PrintText(value.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

void PrintJsonLine(const Json& value)
{
    PrintText(value.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

}  // namespace farlink
