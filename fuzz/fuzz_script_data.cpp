// The body of a script-data tag, and its interpretation by the adaptor, in both readings.

#include "base/Log.h"
#include "flv/Dialect.h"
#include "flv/FlvHandler.h"
#include "flv/ScriptData.h"

#include <cmath>
#include <cstdlib>
#include <string_view>

namespace {

class SilentLog final : public base::LogSink {
public:
    void write(std::string_view) override {}
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static SilentLog silent;
    base::exchangeLogSink(&silent);
    for (const ko_player::FlvReading dialect :
         {ko_player::FlvReading::Strict, ko_player::FlvReading::Standard}) {
        ko_player::FlvHandler handler(dialect);
        handler.onMetadata = [](const ko_player::Metadata& metadata) {
            if (!metadata.hasPosition()) {
                std::abort();
            }
        };
        const auto& rules = ko_player::flv::dialectOf(dialect).script;
        for (const auto& properties : ko_player::flv::readScriptData({data, size}, rules).messages) {
            if (properties.empty()) {
                std::abort();
            }
            for (const auto& [name, value] : properties) {
                if (name.size() > size || (std::isfinite(value) && value != std::round(value))) {
                    std::abort();
                }
            }
            handler.onScriptData(properties);
        }
    }
    return 0;
}
