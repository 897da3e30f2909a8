#pragma once

#include "app/CommandLine.h"

class QNetworkProxy;

[[nodiscard]] QNetworkProxy toNetworkProxy(const ProxySettings& settings);
