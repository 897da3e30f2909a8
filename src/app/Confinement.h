#pragma once

#include "app/CommandLine.h"
#include "records/Options.h"
#include "sandbox/Needs.h"

/// What a command makes of the process.
[[nodiscard]] sandbox::Work workOf(const StreamCommand& command);
[[nodiscard]] sandbox::Work workOf(const ExportCommand& command);

/// Confines the process to its work where the policy wants that, and logs what this system does not have for
/// it. Ends the process with code 1 where all of it is required. Call before any thread is started.
void confineTo(const sandbox::Work& work, ko_player::SandboxPolicy policy);
