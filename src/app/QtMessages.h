#pragma once

/// Passes on what Qt has to say as it is. A thread of Qt's own that cannot be started, for the network for
/// one, ends the process with code 1 then: whoever waits for its work would wait for ever, and Qt tells
/// nobody else.
void installQtMessages();
