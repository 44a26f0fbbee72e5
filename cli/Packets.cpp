// kivmp4 packets: one line for each unit, in the order of delivery.
#include <cinttypes>

#include "Commands.h"

namespace kivmp4::cli {

void Packets(Player& player, const Options& options, Output& out) {
    player.Enable(options.track);
    AccessUnit unit;
    KivMp4InitUnit(player.Handle(), &unit);
    out.Print("# track          pts          dts  duration      size  key\n");
    for (uint64_t listed = 0; !options.count || listed < *options.count; listed++) {
        if (!player.Next(unit)) {
            player.RequireUnits();
            return;
        }
        out.Print("%7" PRIu32 " %12" PRId64 " %12" PRId64 " %9" PRId64 " %9" PRId32 "  %3" PRIu32 "\n", unit.trackIndex,
                  unit.pts, unit.dts, unit.duration, unit.size, unit.isSync);
    }
}

}  // namespace kivmp4::cli
