// One mutex, one condition: traffic is some hundred packets a second, far below what they bear.
#include "Exchange.h"

#include <utility>

namespace player {
namespace {

constexpr size_t kMostBytes = 24 << 20;  // packets of both streams together
constexpr size_t kEnoughPackets = 64;    // of each stream: between one and three seconds

}  // namespace

void Exchange::Send(const Command& command) {
    const std::lock_guard lock(mutex);
    serial = command.serial;
    for (Queue* queue : {&pictures, &sounds})
        queue->packets.clear();
    bytes = 0;
    finished = finished || command.kind == Command::Finish;
    if (command.kind == Command::Seek && !commands.empty() && commands.back().kind == Command::Seek)
        commands.back() = command;
    else
        commands.push_back(command);
    changed.notify_all();
}

bool Exchange::Wait(Command& command, Need need, TimePoint until) {
    std::unique_lock lock(mutex);
    while (commands.empty() && !finished) {
        if (IsMet(need, until))
            return false;
        if (need == Need::Taken && pictures.packets.empty())
            changed.wait_until(lock, until);
        else
            changed.wait(lock);
    }
    if (finished) {
        command = {Command::Finish};
        return true;
    }
    command = commands.front();
    commands.pop_front();
    return true;
}

bool Exchange::IsMet(Need need, TimePoint until) const {
    const auto hasEnough = [](const Queue& queue) { return !queue.exists || queue.packets.size() >= kEnoughPackets; };
    switch (need) {
        case Need::Nothing: return false;
        case Need::Taken: return pictures.packets.empty() && std::chrono::steady_clock::now() >= until;
        case Need::Room: return bytes < kMostBytes && !(hasEnough(pictures) && hasEnough(sounds));
    }
    return false;
}

void Exchange::Push(Stream stream, Packet packet) {
    const std::lock_guard lock(mutex);
    if (packet.serial != serial || !Of(stream).exists)
        return;
    bytes += packet.bytes.size();
    Of(stream).packets.push_back(std::move(packet));
    changed.notify_all();
}

void Exchange::SetStreams(bool withPicture, bool withSound) {
    const std::lock_guard lock(mutex);
    pictures.exists = withPicture;
    sounds.exists = withSound;
}

bool Exchange::Pop(Stream stream, Packet& packet) {
    std::unique_lock lock(mutex);
    Queue& queue = Of(stream);
    changed.wait(lock, [&] { return finished || !queue.packets.empty(); });
    if (finished)
        return false;
    packet = std::move(queue.packets.front());
    queue.packets.pop_front();
    bytes -= packet.bytes.size();
    changed.notify_all();
    return true;
}

bool Exchange::IsFull() {
    const std::lock_guard lock(mutex);
    return bytes >= kMostBytes;
}

}  // namespace player
