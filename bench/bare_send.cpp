// A whole document by a bare `send` loop, as a process: what 'farlink print' is measured against.

#include <fcntl.h>
#include <unistd.h>

#include <vector>

#include "bench/bare_connection.h"

int main(int, char** arguments)
{
    const BareConnection connection;
    const int file = open(arguments[1], O_RDONLY | O_CLOEXEC);
    std::vector<char> buffer(std::size_t{64} * 1024);
    for (ssize_t count; (count = read(file, buffer.data(), buffer.size())) > 0;)
        connection.Send(buffer.data(), static_cast<std::size_t>(count));
    return file < 0;
}
