// SPDX-License-Identifier: MIT
// The floor that the daemon is measured against: the stack alone, without using the values.
#include "read_loop.hpp"

#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr,
                     "Usage: bare-read PORT TAGS PULL-DELAY\n"
                     "Reads ns=1;i=1 to ns=1;i=TAGS of a server on this machine until SIGTERM.\n");
        return 2;
    }
    return Bench::readUntilEnded(argv[1], std::strtoul(argv[2], nullptr, 10), std::atol(argv[3]),
                                 [](const UA_ReadResponse&) {});
}
