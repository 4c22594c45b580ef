// One report with alternating flag bits reaches every form a caller reads it
// in, C and C++, field by field: a flag taken from its neighbour shows.
#include "SimSession.h"
#include "Wait.h"

namespace {

class ReportFields : public SimSession {};

TEST_F(ReportFields, EveryFormCarriesEachFieldOfTheReport) {
    ASSERT_EQ(0, tarvel.StartReceiver());
    const int key = tarvel.RequestReport(0x04, 0x18DA0A5C, true, false, 9, false, false, nullptr);
    ASSERT_EQ(0x40A5C, key);
    const ByteVector data = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    for (const uint8_t flags : {0xA0, 0x50}) { // flag bits 7..4: 1010, then 0101
        SCOPED_TRACE(int(flags));
        sim().injectFrame({2, 0x18DA0A5C, flags, data});
        TarvelReport waited{};
        ASSERT_EQ(1, tarvel.WaitReport(waited, 10000));
        TarvelReport latest{};
        ASSERT_EQ(0, ReadReportTarvel(&tarvel, key, &latest));
        for (const TarvelReport& r : {waited, latest}) {
            EXPECT_EQ(0x18DA0A5Cu, r.id);
            EXPECT_EQ(key, r.requestKey);
            EXPECT_EQ(0x0A5C, r.handler);
            EXPECT_EQ(2, r.channel);
            EXPECT_EQ(1, r.extended);
            EXPECT_EQ(9, r.dlc);
            EXPECT_EQ(12, r.length);
            EXPECT_EQ(flags >> 7 & 1, r.flag7);
            EXPECT_EQ(flags >> 6 & 1, r.flag6);
            EXPECT_EQ(flags >> 5 & 1, r.flag5);
            EXPECT_EQ(flags >> 4 & 1, r.flag4);
            EXPECT_EQ(data, ByteVector(r.data, r.data + r.length));
        }
        // The older forms, one of them packed for C: copied field by field.
        const auto expectFields = [&](const auto& x) {
            EXPECT_EQ(0x20A5Cu, uint32_t(x.key));
            EXPECT_EQ(0x0A5C, int(x.handler));
            EXPECT_EQ(2, int(x.channel));
            EXPECT_EQ(9, int(x.dlc));
            EXPECT_EQ(flags >> 7 & 1, int(x.flag7));
            EXPECT_EQ(flags >> 6 & 1, int(x.flag6));
            EXPECT_EQ(flags >> 5 & 1, int(x.flag5));
            EXPECT_EQ(flags >> 4 & 1, int(x.flag4));
        };
        const RecvAsyncMessage m = tarvel.ReadAsyncMessage(key);
        expectFields(m);
        EXPECT_EQ(data, m.data);
        TarvelAsyncMessage c{};
        unsigned char copied[64] = {};
        ASSERT_EQ(12, ReadAsyncMsgTarvel(&tarvel, key, &c, copied, sizeof copied));
        expectFields(c);
        EXPECT_EQ(data, ByteVector(copied, copied + 12));
    }
}

} // namespace
