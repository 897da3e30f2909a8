#include "app/CommandLine.h"

#include <QUrl>

#include <cstring>

namespace {

constexpr int kFewestArguments = 4;

ProxySettings parseProxy(const QString& text, bool socks5) {
    const QUrl url(text);
    ProxySettings proxy;
    proxy.type = socks5 ? ProxySettings::Type::Socks5 : ProxySettings::Type::Http;
    proxy.host = url.host(QUrl::FullyDecoded);
    proxy.port = static_cast<quint16>(url.port());
    proxy.user = url.userName(QUrl::FullyDecoded);
    proxy.password = url.password(QUrl::FullyDecoded);
    return proxy;
}

} // namespace

bool hasEnoughArguments(int argc) {
    return argc >= kFewestArguments;
}

ParsedCommand parseCommandLine(int argc, const char* const* argv) {
    const auto argument = [argc, argv](int position) { return position < argc ? argv[position] : ""; };

    QString first = QString::fromLatin1(argument(1));
    if (first.startsWith(QLatin1String("file"))) {
        first = QString::fromLocal8Bit(argument(1));
    } else if (first == QLatin1String("export")) {
        return ExportCommand{QString::fromLatin1(argument(2)), QString::fromLatin1(argument(3)).toInt(),
                             QString::fromLocal8Bit(argument(4)), QString::fromLocal8Bit(argument(5))};
    }
    StreamCommand command{
        first, QString::fromLocal8Bit(argument(2)), QString::fromLocal8Bit(argument(3)), {}};
    if (argc > 4) {
        command.proxy =
            parseProxy(QString::fromLocal8Bit(argument(4)), std::strcmp(argument(5), "socks5") == 0);
    }
    return command;
}
