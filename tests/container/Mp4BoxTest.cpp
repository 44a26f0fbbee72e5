// Child walk, reading and loading of boxes.
#include "container/Mp4Box.h"

#include <gtest/gtest.h>

#include "support/BoxTree.h"

namespace kivmp4::test {
namespace {

TEST(Mp4Box, WalksChildrenAsFarAsTheyFit) {
    struct Case {
        const char* name;
        Bytes file;
        uint32_t children;
        int64_t lastSize;
    };
    const Bytes moov = Box("moov", {}), mdat = Box("mdat", Hex("01 02")), skip = Box("free", {});
    const Case cases[] = {
        {"ends behind the later of moov and mdat", Join({skip, moov, mdat, skip, skip}), 3, 10},
        {"goes on while one is missing", Join({skip, moov, moov, skip}), 4, 8},
        {"size 0 takes the rest", Join({skip, Hex("00000000 6d646174 0102030405")}), 2, 13},
        {"64-bit size", Join({skip, Box64("mdat", Hex("0102"))}), 2, 18},
        {"64-bit size 0", Join({skip, Hex("00000001 66726565 0000000000000000")}), 1, 8},
        {"64-bit size within its own header", Join({skip, Hex("00000001 66726565 000000000000000f"), skip}), 1, 8},
        {"size below the header's", Join({skip, Hex("00000004 6d6f6f76"), skip}), 1, 8},
        {"size with the top bit set", Join({skip, Hex("80000000 6d646174"), skip}), 1, 8},
        {"negative 64-bit size", Join({skip, Hex("00000001 66726565 fffffffffffffff8"), skip}), 1, 8},
        {"greatest 64-bit size", Join({skip, Hex("00000001 66726565 7fffffffffffffff"), skip}), 1, 8},
        {"one byte beyond the file", Join({skip, Hex("0000000a 66726565 00")}), 1, 8},
        {"header cut off", Join({skip, Hex("0000000a 667265")}), 1, 8},
        {"empty", {}, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        BoxTree tree(c.file);
        EXPECT_EQ(tree.File().GetChildCount(), c.children);
        EXPECT_EQ(tree.File().GetChild(c.children), nullptr);
        if (c.children > 0) {
            EXPECT_EQ(tree.File().GetChild(c.children - 1)->GetSize(), c.lastSize);
            EXPECT_EQ(tree.File().CountChildren(FourCc("mdat")) > 0, tree.File().GetChildOffset(FourCc("mdat")) >= 0);
        }
    }
}

TEST(Mp4Box, LoadsOnceAndCountsReferences) {
    for (const size_t content :
         {size_t{1016}, size_t{1017}}) {  // the last in the module heap, the first from the player
        SCOPED_TRACE(content);
        const Bytes inner = Box("stco", Bytes(8, 0x11));
        BoxTree tree(Box("stbl", Join({inner, Bytes(content - inner.size(), 0)})));
        Mp4Box& stbl = tree.Root();
        Mp4Box* stco = stbl.FindChild(FourCc("stco"));
        tree.source.notReady = 3;
        const uint8_t* bytes = stbl.AcquireData();
        ASSERT_NE(bytes, nullptr);
        EXPECT_EQ(tree.memory.Outstanding(), content > 1016 ? 1u : 0u);
        const int reads = tree.source.reads;
        EXPECT_EQ(stbl.AcquireData(), bytes);
        EXPECT_EQ(stco->AcquireData(), bytes + 8);  // inside its parent's bytes
        stbl.ReleaseData();
        stbl.ReleaseData();
        EXPECT_TRUE(stco->IsDataAvailable());  // its reference keeps the parent loaded
        uint8_t copy[16] = {};
        EXPECT_EQ(stco->Read(8, 8, copy), ReadStatus::Done);
        EXPECT_EQ(copy[7], 0x11);
        EXPECT_EQ(stco->Read(9, 8, copy), ReadStatus::Failed) << "reaches behind the box";
        EXPECT_EQ(stco->Read(-1, 1, copy), ReadStatus::Failed);
        EXPECT_EQ(tree.source.reads, reads);
        stco->ReleaseData();
        stco->ReleaseData();  // one too many
        EXPECT_FALSE(stbl.IsDataAvailable());
        EXPECT_EQ(tree.memory.Outstanding(), 0u);
        ASSERT_NE(stbl.AcquireData(), nullptr);
        EXPECT_GT(tree.source.reads, reads);
        stbl.ReleaseData();
    }
}

}  // namespace
}  // namespace kivmp4::test
