#include "Commands.h"

#include <cstdio>

namespace cli {

// Placeholder until the search command lands.
int runSearch(const QStringList&)
{
    std::fprintf(stderr, "trovix: 'search' is not available in this build yet\n");
    return 2;
}

} // namespace cli
