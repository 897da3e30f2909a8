#pragma once

#include <QString>
#include <QtGlobal>

#include <optional>
#include <variant>

/// Where the process's network requests go through.
struct ProxySettings {
    enum class Type { Http, Socks5 };

    Type type = Type::Http;
    QString host;
    quint16 port = 0; ///< 65535 when the URL has none
    QString user;
    QString password;
};

/// Play a stream, or a local file, for a parent.
struct StreamCommand {
    QString url; ///< or the path of a local file
    QString channelName;
    QString serverName;
    std::optional<ProxySettings> proxy;
};

/// Record a stream into a file.
struct ExportCommand {
    QString url;
    int durationMs = 0;
    QString outputPath;
    QString serverName;
};

using ParsedCommand = std::variant<StreamCommand, ExportCommand>;

/// Every mode has at least three arguments. `argc` counts the program's name.
[[nodiscard]] bool hasEnoughArguments(int argc);

/// Call with enough arguments, and after the application object has set the locale: file names come in its
/// encoding.
[[nodiscard]] ParsedCommand parseCommandLine(int argc, const char* const* argv);
