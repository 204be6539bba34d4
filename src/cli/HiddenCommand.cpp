#include "Commands.h"

#include <cstdio>

namespace cli {

// Placeholder until the hidden command lands.
int runHidden(const QStringList&)
{
    std::fprintf(stderr, "trovix: 'hidden' is not available in this build yet\n");
    return 2;
}

} // namespace cli
