#include "app/ApplicationProxy.h"

#include <QNetworkProxy>

#include <gmock/gmock.h>

namespace {

TEST(ApplicationProxy, TakesEverySettingOver) {
    const QNetworkProxy http = toNetworkProxy({ProxySettings::Type::Http, "host", 3128, "user", "secret"});
    EXPECT_EQ(http, QNetworkProxy(QNetworkProxy::HttpProxy, "host", 3128, "user", "secret"));
    const QNetworkProxy socks = toNetworkProxy({ProxySettings::Type::Socks5, "host", 1080, {}, {}});
    EXPECT_EQ(socks, QNetworkProxy(QNetworkProxy::Socks5Proxy, "host", 1080));
}

} // namespace
