#include "base/ParentDeath.h"

#if __has_include(<sys/prctl.h>)
#include <sys/prctl.h>
#endif

namespace base {

void surviveParent() noexcept {
#ifdef PR_SET_PDEATHSIG
    ::prctl(PR_SET_PDEATHSIG, 0, 0, 0, 0);
#endif
}

} // namespace base
