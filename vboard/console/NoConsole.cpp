// For builds without the libraries that the console needs: there is none, and the launcher says so.

#include "console/Console.h"

namespace console {

struct Console::Parts {};

Console::Console(const board::Board& /*board*/, Listener /*listener*/)
{
}

Console::~Console() = default;

bool Console::serving() const
{
    return false;
}

}  // namespace console
