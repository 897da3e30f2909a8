#pragma once

namespace mediaworker::ctl::standard_output {

/// Makes it take UTF-8, where that is not a matter of course.
void prepare();

/// Whether a person looks at it.
[[nodiscard]] bool isTerminal();

} // namespace mediaworker::ctl::standard_output
