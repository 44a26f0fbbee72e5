// MPEG-4 visual units.
#include "codec/ConfigPrefixUnitHandler.h"

#include <cstring>

namespace kivmp4 {
namespace {

constexpr size_t kShortestConfig = 5;  // a start code and one more byte

bool IsVideoObjectLayer(const uint8_t* code) {
    return code[0] == 0 && code[1] == 0 && code[2] == 1 && code[3] >> 4 == 2;
}

}  // namespace

ConfigPrefixUnitHandler::ConfigPrefixUnitHandler(ByteView config) {
    while (config.size >= kShortestConfig && !IsVideoObjectLayer(config.data))
        config = config.From(1);
    if (config.size < kShortestConfig)
        return;
    configData = static_cast<uint8_t*>(ModuleAlloc(1, config.size));
    if (!configData)
        return;
    std::memcpy(configData, config.data, config.size);
    configSize = static_cast<int32_t>(config.size);
}

ConfigPrefixUnitHandler::~ConfigPrefixUnitHandler() { ModuleFree(configData); }

int32_t ConfigPrefixUnitHandler::FormatUnit(AccessUnit& unit, SampleReader& reader, int64_t offset,
                                            uint32_t sampleSize) {
    const ByteView prefix = sendConfig ? ByteView{configData, static_cast<size_t>(configSize)} : ByteView{};
    sendConfig = false;  // whether or not this unit succeeds
    return FormatCopy(unit, reader, offset, sampleSize, prefix);
}

}  // namespace kivmp4
