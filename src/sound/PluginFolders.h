#pragma once

/// Where Qt looks for its plugins. Nothing but the sound needs one; but before the first request Qt reads
/// every "bearer" plugin it finds and lets it watch the network: two threads, a D-Bus connection, a poll
/// every ten seconds and some milliseconds of every start, for an answer that nothing here needs.

/// Leaves Qt without plugins. Call once the application object stands, before anything uses the network.
void hidePluginFolders();

/// Gives Qt the folders back. Thread-safe; does nothing where they were never hidden.
void restorePluginFolders();
