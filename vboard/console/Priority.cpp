#include "console/Priority.h"

#include <sys/resource.h>
#include <unistd.h>

namespace console {

void stepBack()
{
    constexpr int kLowest = 19;
    // Linux keeps it for each thread. Going down is always allowed; if not, the console works all the same.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), kLowest);
}

}  // namespace console
