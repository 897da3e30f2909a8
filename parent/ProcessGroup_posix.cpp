#include "parent/ProcessGroup.h"

namespace mediaworker::parent {

struct ProcessGroup::Job {};

ProcessGroup::ProcessGroup(std::uint64_t /*mostBytes*/) {}

ProcessGroup::~ProcessGroup() = default;

bool ProcessGroup::adopt(std::int64_t /*pid*/) {
    return false;
}

} // namespace mediaworker::parent
