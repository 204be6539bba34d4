#include "Commands.h"

#include <cstdio>

namespace cli {

// Placeholder until the memory command lands.
int runMemory(const QStringList&)
{
    std::fprintf(stderr, "trovix: 'memory' is not available in this build yet\n");
    return 2;
}

} // namespace cli
