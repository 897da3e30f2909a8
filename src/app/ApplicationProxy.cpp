#include "app/ApplicationProxy.h"

#include <QNetworkProxy>

QNetworkProxy toNetworkProxy(const ProxySettings& settings) {
    const auto type =
        settings.type == ProxySettings::Type::Socks5 ? QNetworkProxy::Socks5Proxy : QNetworkProxy::HttpProxy;
    return {type, settings.host, settings.port, settings.user, settings.password};
}
