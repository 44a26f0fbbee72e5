// Start-code conversion of H.264 samples.
#include "codec/AvcUnitHandler.h"

#include <cstring>

namespace kivmp4 {
namespace {

constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
constexpr int64_t kStartCodeSize = sizeof(kStartCode);
constexpr size_t kSetCount = 5;  // record byte: number of sequence parameter sets in its low five bits
constexpr size_t kFirstSet = 6;

// Walks the parameter sets of a record: sequence sets first, then picture sets after a count of their own.
// `visit` gets each set's bytes and whether it is a picture set. @return false when a set runs past the record or
// `visit` refuses one
template <typename Visitor>
bool ForEachParameterSet(ByteView record, Visitor visit) {
    if (!record.Has(kSetCount, 1))
        return false;
    size_t position = kFirstSet;
    uint32_t left = record.U8(kSetCount) & 0x1F;
    for (const bool picture : {false, true}) {
        if (picture) {
            if (!record.Has(position, 1))
                return false;
            left = record.U8(position++);
        }
        for (; left > 0; --left) {
            const size_t size = record.BE16(position);
            if (!record.Has(position, 2) || !record.Has(position + 2, size))
                return false;
            if (!visit(ByteView{record.data + position + 2, size}, picture))
                return false;
            position += size + 2;
        }
    }
    return true;
}

void AppendBytes(AccessUnit& unit, const uint8_t* bytes, size_t size) {
    std::memcpy(unit.payload + unit.size, bytes, size);
    unit.size += static_cast<int32_t>(size);
}

}  // namespace

AvcUnitHandler::AvcUnitHandler(ByteView config) : avcConfigSize(static_cast<int32_t>(config.size)) {
    avcConfig = static_cast<uint8_t*>(ModuleAlloc(1, config.size));
    if (!avcConfig)
        return;
    std::memcpy(avcConfig, config.data, config.size);
    if (config.size > 4)
        nalLengthSize = (avcConfig[4] & 3) + 1;
}

AvcUnitHandler::~AvcUnitHandler() { ModuleFree(avcConfig); }

int32_t AvcUnitHandler::GetMaxUnitSize(int32_t n) const {
    return Bound(int64_t{n} + avcConfigSize + (4 - nalLengthSize) * 12);
}

int32_t AvcUnitHandler::FormatUnit(AccessUnit& unit, SampleReader& reader, int64_t offset, uint32_t sampleSize) {
    if (nalLengthSize == 0)
        return 0;
    unit.size = 0;
    const int64_t need = int64_t{sampleSize} + (4 - nalLengthSize) * 4;
    if (sendParameterSets) {
        sendParameterSets = false;  // whether or not this unit succeeds
        if (!ParameterSetsFit() || !Grow(unit, avcConfigSize + need, kFirstUnitMargin) || !AppendParameterSets(unit))
            return 0;
    } else if (!Grow(unit, need, kMargin)) {
        return 0;
    }
    return AppendSample(unit, reader, offset, sampleSize) ? unit.size : 0;
}

bool AvcUnitHandler::ParameterSetsFit() const {
    const ByteView record{avcConfig, static_cast<size_t>(avcConfigSize)};
    return ForEachParameterSet(record, [](ByteView, bool) { return true; });
}

bool AvcUnitHandler::AppendParameterSets(AccessUnit& unit) const {
    const ByteView record{avcConfig, static_cast<size_t>(avcConfigSize)};
    return ForEachParameterSet(record, [&unit](ByteView set, bool picture) {
        if (unit.size + static_cast<int64_t>(set.size) + kStartCodeSize > unit.capacity)
            return false;
        const size_t skipped = picture ? 0 : 1;  // the first zero byte belongs to picture sets alone: meant
        AppendBytes(unit, kStartCode + skipped, sizeof(kStartCode) - skipped);
        AppendBytes(unit, set.data, set.size);
        return true;
    });
}

// Bytes at the end that are too few for another length field are dropped.
bool AvcUnitHandler::AppendSample(AccessUnit& unit, SampleReader& reader, int64_t offset, uint32_t sampleSize) const {
    const uint32_t lengthSize = static_cast<uint32_t>(nalLengthSize);
    uint32_t remaining = sampleSize;
    int64_t position = offset;
    while (remaining > lengthSize) {
        uint8_t field[4] = {};
        if (reader.ReadData(position, lengthSize, field + sizeof(field) - lengthSize) != 0)
            return false;
        position += lengthSize;
        remaining -= lengthSize;
        const uint32_t size = ReadBE32(field);
        if (remaining < size || !GrowKeeping(unit, int64_t{unit.size} + size, kFirstUnitMargin))
            return false;
        std::memcpy(unit.payload + unit.size, kStartCode, sizeof(kStartCode));
        if (reader.ReadData(position, size, unit.payload + unit.size + kStartCodeSize) != 0)
            return false;
        unit.size += static_cast<int32_t>(size + kStartCodeSize);
        position += size;
        remaining -= size;
    }
    return true;
}

}  // namespace kivmp4
