// Building a track from its "trak" box (ISO/IEC 14496-12, 8.3 to 8.6).
#include "container/Track.h"

#include "support/ClientMemory.h"
#include "support/Log.h"
#include "support/Ticks.h"
#include "support/Wrap.h"

namespace kivmp4 {

Track::Track(Mp4Box& trakBox, uint32_t movieTimescale, int64_t movieDuration100us, uint32_t index,
             const ClientAllocator* memory, int32_t level)
    : allocator(memory), logLevel(level), trackIndex(index) {
    if (!ReadHeader(trakBox))
        return;
    int64_t initialOffset = 0;
    if (Mp4Box* edts = trakBox.FindChild(FourCc("edts")))
        initialOffset = DivideOrZero(WrapMultiply(ReadEditList(*edts), kTicksPerSecond), movieTimescale);
    Mp4Box* mdia = trakBox.FindChild(FourCc("mdia"));
    if (mdia && ParseMDIA(*mdia, initialOffset, movieDuration100us))
        trak = &trakBox;
}

Track::~Track() { FreeWords(allocator, syncSamples); }

// @return false for a track that is disabled or whose header is missing or cut short
bool Track::ReadHeader(Mp4Box& trakBox) {
    constexpr uint8_t kTrackEnabled = 1;
    Mp4Box* tkhd = trakBox.FindChild(FourCc("tkhd"));
    uint8_t versionAndFlags[4];
    if (!tkhd || tkhd->GetSize() - tkhd->GetHeaderSize() < static_cast<int64_t>(sizeof(versionAndFlags)))
        return false;
    if (tkhd->Read(tkhd->GetHeaderSize(), sizeof(versionAndFlags), versionAndFlags) != ReadStatus::Done)
        return false;
    if (!(versionAndFlags[3] & kTrackEnabled))
        return false;
    const BoxContent content(tkhd);
    const size_t first = versionAndFlags[0] == 1 ? 52 : 40;
    if (!content || !content->Has(first, sizeof(matrix)))
        return false;
    for (size_t element = 0; element < 9; ++element)
        matrix[element] = content->BE32(first + element * 4);
    return true;
}

// An empty edit and then the media from its start: a delay. Any other list counts as none.
// @return the delay in movie units
int64_t Track::ReadEditList(Mp4Box& edts) {
    const BoxContent list(edts.FindChild(FourCc("elst")));
    if (!list || list->BE32(4) != 2)
        return 0;
    constexpr size_t kEntries = 8;
    if (list->U8(0) == 0 && list->Has(kEntries, 24)) {
        const bool delay = list->BE32(kEntries + 4) == 0xFFFFFFFF && list->BE32(kEntries + 16) == 0;
        return delay ? list->BE32(kEntries) : 0;
    }
    if (list->U8(0) == 1 && list->Has(kEntries, 40)) {
        const bool delay = list->BE64(kEntries + 8) == UINT64_MAX && list->BE64(kEntries + 28) == 0;
        return delay ? static_cast<int64_t>(list->BE64(kEntries)) : 0;
    }
    return 0;
}

// @return false when the box is too short for its fields
bool Track::ReadMediaHeader(const ByteView& mdhd) {
    mdhdVersion1 = mdhd.U8(0) == 1;
    const size_t languageField = mdhdVersion1 ? 32 : 20;
    if (!mdhd.Has(languageField, 2))
        return false;
    timescale = mdhd.BE32(mdhdVersion1 ? 20 : 12);
    duration = mdhdVersion1 ? static_cast<int64_t>(mdhd.BE64(24)) : static_cast<int32_t>(mdhd.BE32(16));
    const uint32_t packed = mdhd.BE16(languageField);
    for (uint32_t letter = 0; letter < 3; ++letter)
        language[letter] = static_cast<char>((packed >> (10 - 5 * letter) & 0x1F) + 0x60);
    return true;
}

bool Track::ParseMDIA(Mp4Box& mdia, int64_t initialOffset, int64_t movieDuration100us) {
    const BoxContent mdhd(mdia.FindChild(FourCc("mdhd")));
    if (!mdhd || !ReadMediaHeader(*mdhd))
        return false;
    LogDebug(logLevel, "ParseMDIA", 478, "Media Duration:  %lld ", static_cast<long long>(duration));
    LogDebug(logLevel, "ParseMDIA", 479, "Media Language:  %c%c%c ", language[0], language[1], language[2]);
    Mp4Box* minf = mdia.FindChild(FourCc("minf"));
    if (!minf) {
        LogError(logLevel, "ParseMDIA", 485, " No MINF box");
        return false;
    }
    stbl = minf->FindChild(FourCc("stbl"));
    if (!stbl) {
        LogError(logLevel, "ParseMDIA", 491, " No STBL box");
        return false;
    }
    ParseTables(initialOffset);
    const int64_t meanSampleDuration = DivideOrZero(movieDuration100us, static_cast<uint32_t>(SampleCount()));
    Mp4Box* stsd = stbl->FindChild(FourCc("stsd"));
    if (!stsd || !ParseSTSD(*stsd, meanSampleDuration)) {
        LogError(logLevel, "ParseMDIA", 518, " Error parsing STSD box");
        return false;
    }
    ParseArrays();
    return true;
}

// Missing tables do not make a track invalid: the lookups cope.
void Track::ParseTables(int64_t initialOffset) {
    sampleMap.Take(ModuleNew<SampleMap>());
    if (!sampleMap || !sampleMap->Parse(*stbl))
        LogWarning(logLevel, "ParseMDIA", 498, " Error parsing STSZ box");
    keyMap.Take(ModuleNew<KeyMap>());
    if (!keyMap || !keyMap->Parse(*stbl))
        LogWarning(logLevel, "ParseMDIA", 503, " Error parsing KeyMap box");
    timeStamps.Take(ModuleNew<TimeStamps>());
    if (!timeStamps || !timeStamps->Parse(timescale, initialOffset, *stbl))
        LogWarning(logLevel, "ParseMDIA", 508, " Error parsing TimeStamps box");
}

// The arrays serve seeking and navigation.
void Track::ParseArrays() {
    times.Begin(allocator, timescale);
    if (IsVideo()) {
        Mp4Box* ctts = stbl->FindChild(FourCc("ctts"));
        if (!ctts || !times.ParseCTTS(*ctts, logLevel))
            LogDebug(logLevel, "ParseMDIA", 528, "No CTTS box ");
    }
    Mp4Box* stts = stbl->FindChild(FourCc("stts"));
    if (!stts || !times.ParseSTTS(*stts, logLevel))
        LogWarning(logLevel, "ParseMDIA", 535, " No STTS box present ");
    if (IsVideo()) {
        Mp4Box* stss = stbl->FindChild(FourCc("stss"));
        if (!stss || !ParseSTSS(*stss))
            LogWarning(logLevel, "ParseMDIA", 560, " No STSS box ");
    }
}

bool Track::ParseSTSS(Mp4Box& stss) {
    Table table;
    if (!table.Acquire(&stss, 4))
        return false;
    syncSamples = AllocateWords(allocator, table.Count());
    if (!syncSamples) {
        LogError(logLevel, "ParseSTSS", 652, " Cannot allocate memory of size(%d)",
                 static_cast<int>(table.Count() * 4));
        return false;
    }
    syncSampleCount = table.Count();
    for (uint32_t entry = 0; entry < syncSampleCount; ++entry) {
        syncSamples[entry] = table.Word(entry) - 1;
        if (entry > 0 && syncSamples[entry] < syncSamples[entry - 1])
            syncAscending = false;
    }
    return true;
}

bool Track::GetTrackInfo(CodecInfo* record, uint32_t index) const {
    const bool described = elementaryStream->GetCodecInfo(record, index);
    for (int letter = 0; letter < 3; ++letter)
        record->language[letter] = language[letter];
    record->language[3] = 0;
    return described;
}

}  // namespace kivmp4
