// Every failure once: each allocation and each answer of the player, over opening, delivery, winding and seeks.
#include "support/Session.h"

#include <tuple>

namespace kivmp4::test {
namespace {

FailingCall *heapCalls = nullptr, *systemCalls = nullptr;  // of the run that is on

}  // namespace

// The linker leads the module's calls of a function through here, where those fail that `calls` chooses.
#define FAILING(calls, failure, result, function, name, parameters, arguments) \
    result Real##function parameters asm("__real_" name);                      \
    result Wrap##function parameters asm("__wrap_" name);                      \
    result Wrap##function parameters { return calls && calls->Fails() ? failure : Real##function arguments; }
FAILING(heapCalls, nullptr, void*, Heap, KIVMP4_HEAP_ALLOCATE, (void* heap, size_t n, uint32_t mark), (heap, n, mark))
FAILING(heapCalls, nullptr, void*, Aligned, KIVMP4_HEAP_ALIGNED, (void* heap, size_t to, size_t n, uint32_t mark),
        (heap, to, n, mark))
FAILING(systemCalls, EAGAIN, int, Thread, "pthread_create", (void* id, void* how, void* run, void* with),
        (id, how, run, with))
FAILING(systemCalls, -1, int32_t, Lock, KIVMP4_LOCK_CREATE, (void* lock, const char* name), (lock, name))

namespace {

using Fault = MemoryFile::Fault;

// Small tables come from the heap, those above 1024 bytes from the player.
std::vector<Bytes> Files() {
    Movie video{.tracks = {VideoTrack(30)}}, sound{.tracks = {AudioTrack(30)}},
        many{.tracks = {AudioTrack(30), VideoTrack(300)}};
    const Bytes delay = Box("edts", Words("elst", {2, 500, 0xFFFFFFFF, 0, 9, 0, 0}));
    video.tracks[0].replace = {
        {"stss", Words("stss", {3, 1, 11, 21})}, {"ctts", Words("ctts", {1, 30, 3000})}, {"edts", delay}};
    video.tracks[0].samples[5] = Prefixed(4, {Nal(70000), Nal(66000)});  // read past the buffer
    const Bytes offsets = FullBox("ctts", Put().U32(300).Each(Numbers(600, 1), 4));
    many.tracks[1].replace = {{"stss", FullBox("stss", Put().U32(300).Each(Numbers(300, 1), 4))}, {"ctts", offsets}};
    many.tracks.push_back(VideoTrack(20));
    many.tracks[2].entry = VideoEntry("mp4v", Esds(Hex("000001B0 03 00000120 00 C4 88")));
    return {Mp4Builder::Build(video), Mp4Builder::Build(sound), Mp4Builder::Build(many)};
}

TEST(Failures, OfEveryCallEndInADocumentedResult) {
    enum Victim { Heap, System, Memory, Read };
    const std::tuple<const char*, Victim, Fault, uint32_t> ways[] = {
        {"heap once", Heap, Fault::None, 1},
        {"heap for ever", Heap, Fault::None, FailingCall::kForEver},
        {"heap for ever, and the player's memory", Heap, Fault::Empty, FailingCall::kForEver},
        {"threads and locks once", System, Fault::None, 1},
        {"threads and locks for ever", System, Fault::None, FailingCall::kForEver},
        {"player's memory once", Memory, Fault::None, 1},
        {"player's memory for ever", Memory, Fault::None, FailingCall::kForEver},
        {"short by one", Read, Fault::Short, 1},
        {"one more than asked", Read, Fault::Over, 1},
        {"as many as can be", Read, Fault::Error, 1},
        {"errors for ever", Read, Fault::Error, FailingCall::kForEver},
        {"empty once", Read, Fault::Empty, 1},
        {"empty a hundred times", Read, Fault::Empty, 100},
    };
    int failures = 0;
    for (const Bytes& content : Files()) {
        Session honest(content);
        ASSERT_TRUE(honest.Start());
        const std::vector<Unit> expected = honest.Deliver();
        honest.Close();
        for (const auto& [name, failing, fault, count] : ways) {
            bool met = true;
            for (uint32_t n = 0; met; n += SweepStep(), failures += met) {
                SCOPED_TRACE(std::string(name) + ' ' + std::to_string(n));
                FailingCall heap, system;
                heapCalls = &heap;
                systemCalls = &system;
                Session session(content);
                session.file.fault = fault;
                FailingCall& victim =
                    *std::array{&heap, &system, &session.memory.failing, &session.file.failing}[failing];
                victim.first = n;
                if (failing == Heap && fault == Fault::Empty)
                    session.memory.failing.first = 0;
                victim.count = count;
                session.Exercise();
                if (failing == Read && session.demux && KivMp4Rewind(session.demux) == 0) {
                    const std::vector<Unit> units = session.Deliver();
                    for (size_t i = 0; i < units.size(); i++)
                        EXPECT_TRUE(units[i].bytes == expected.at(i).bytes) << "wrong bytes";
                    EXPECT_TRUE(fault != Fault::Empty || session.result == 1);
                }
                session.Close();
                met = victim.calls > n;
                heapCalls = systemCalls = nullptr;
                ASSERT_FALSE(HasFailure());
            }
        }
    }
    EXPECT_GT(failures * static_cast<int>(SweepStep()), 2000);  // the sweeps have reached the calls
}

TEST(Failures, OfAPlayerThatTakesItsWordBack) {
    const Bytes content = Files()[0];
    const auto size = static_cast<int64_t>(content.size());
    const std::tuple<const char*, int64_t, uint32_t, bool> cases[] = {
        {"never known", 0, FailingCall::kForEver, false},
        {"known late", 0, 20, true},
        {"negative at first", -size, 20, true},
        {"grows", size / 2, 1, true},
        {"grows late", size - 9, 3, true},
        {"shrinks", size + 5000, 1, false},
        {"endless", std::numeric_limits<int64_t>::max(), 1, false},
    };
    for (const auto& [name, firstSize, asks, opens] : cases) {
        SCOPED_TRACE(name);
        Session session(content);
        session.file.firstSize = firstSize;
        session.file.firstAsks = asks;
        session.file.delaySeed = 1;
        EXPECT_TRUE(session.Open() == 0 || !opens);
        session.Exercise();
    }
    Session endless(content);
    endless.file.fault = Fault::Empty;
    endless.file.failing.first = 0;
    ASSERT_TRUE(endless.Create());
    while (endless.file.Reads().empty())
        std::this_thread::yield();
    endless.Close();  // returns
}

TEST(Failures, OfAHeapOfAnySize) {
    const Bytes content = Files()[2];
    int opened = 0;
    for (size_t capacity = 0; capacity < 260000;
         capacity += capacity < 6000 || capacity > 196608 ? 64 * SweepStep() : 50000) {
        SCOPED_TRACE(capacity);
        Session session(content, capacity, capacity / 64 % 8);
        const bool open = session.Open() == 0;
        EXPECT_TRUE(!open || capacity > 196608);  // the size of the read-ahead buffer
        opened += open;
        session.Exercise();
    }
    EXPECT_GT(opened, 10);
}

}  // namespace
}  // namespace kivmp4::test
