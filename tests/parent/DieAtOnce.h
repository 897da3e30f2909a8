#pragma once

/// Ends the process as the parent's kill() does.
void dieAtOnce();
