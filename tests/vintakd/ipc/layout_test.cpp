#include "tests/vintakd/ipc/raw_peer.h"
#include "tests/vintakd/ipc/segment_fixture.h"
#include "vintakd/ipc/Gateway.h"
#include "vintakd/vintakd_if.h"

TEST(Layout, FreshSegmentHoldsHeaderTableAndRegionsAtTheirOffsets) {
    const SegmentName name;
    GatewayBase gateway(name.c_str(), 4 * kTestChannelSize + 4096, kTestChannelSize, 4, true);
    gateway.setTimeout(20000, true);
    const RawSegment raw(name.c_str());

    EXPECT_EQ(raw.size(), 69632u);
    EXPECT_EQ(raw.mode(), 0644u);
    EXPECT_EQ(raw.at<uint64_t>(0), 4u);
    EXPECT_EQ(raw.at<uint64_t>(8), 16384u);
    for (size_t i = 16; i < 96; ++i)
        EXPECT_EQ(raw.bytes()[i], 0) << i;
    for (size_t i = 96 + 4 * 16384; i < raw.size(); ++i)
        EXPECT_EQ(raw.bytes()[i], 0) << i;
    for (size_t region = 96; region < 96 + 4 * 16384; region += 16384) {
        EXPECT_EQ(raw.at<uint32_t>(region), 2u);
        EXPECT_EQ(raw.at<uint32_t>(region + 4), 0u);
        EXPECT_EQ(raw.at<int32_t>(region + 8 + 16), 128) << "process-shared mutex kind";
        EXPECT_EQ(raw.at<uint64_t>(region + 48), 0u);
        EXPECT_EQ(raw.at<uint64_t>(region + 80), 0u);
        EXPECT_EQ(raw.at<uint32_t>(region + 112), 2u);
        EXPECT_EQ(raw.at<uint64_t>(region + 116), 0u);
        EXPECT_EQ(raw.at<uint64_t>(region + 128), 0u);
        EXPECT_EQ(raw.at<int32_t>(region + 128 + 24), 20000);
    }
}

TEST(Layout, TableEntryOfAReservedChannelNamesItsClient) {
    const SegmentName name;
    GatewayBase owner(name.c_str(), segmentSize(2), kTestChannelSize, 2, true);
    const RawSegment raw(name.c_str());
    const int32_t servantPid = 4711;
    std::memcpy(raw.bytes() + 32 + 16 + 4, &servantPid, 4);
    const uint32_t purging = 2;
    std::memcpy(raw.bytes() + 32, &purging, 4);

    std::thread servant([&] {
        RawPeer peer(raw.bytes() + 64 + 16384);
        if (peer.recv() == "Knock, knock.") peer.send("Who's there?");
    });
    Gateway client(name.c_str());
    EXPECT_EQ(client.reserveChannel(), 1u);
    servant.join();

    EXPECT_EQ(raw.at<uint32_t>(48), 1u);
    EXPECT_EQ(raw.at<int32_t>(52), servantPid);
    EXPECT_EQ(raw.at<int32_t>(56), getpid());
    EXPECT_EQ(raw.at<int32_t>(60), gettid());
    EXPECT_NEAR(static_cast<double>(raw.at<int64_t>(64 + 16384 + 128 + 32)),
                static_cast<double>(time(nullptr)), 5);
    client.releaseChannel(1);
    EXPECT_EQ(raw.at<uint64_t>(56), 0u);
    EXPECT_EQ(raw.at<uint32_t>(48), 0u);
}

TEST(Layout, RawPeerExchangesMessagesOfEveryLengthWithAChannel) {
    const SegmentName name;
    GatewayBase owner(name.c_str(), segmentSize(1), kTestChannelSize, 1, true);
    const RawSegment raw(name.c_str());
    std::string pattern(3 * 16208 + 5, '\0');
    for (size_t i = 0; i < pattern.size(); ++i)
        pattern[i] = static_cast<char>(i * 7 + i / 251);

    const std::vector<size_t> lengths = {0, 1, 16207, 16208, 16209, 2 * 16208, pattern.size()};
    std::thread peerThread([&] {
        RawPeer peer(raw.bytes() + 48);
        for (size_t i = 0; i < lengths.size(); ++i)
            peer.send(peer.recv());
    });
    for (const size_t length : lengths) {
        owner.getChannel(0).send(pattern.data(), length, 10000);
        const ipc::Message echo = owner.getChannel(0).recv(10000);
        EXPECT_EQ(std::string(echo.getPointer(), echo.getSize()), pattern.substr(0, length));
    }
    peerThread.join();
    const RawPeer peer(raw.bytes() + 48);
    for (const size_t offset : {4, 116, 132, 136})
        EXPECT_EQ(peer.wordAt(offset), 0u) << offset;
}

TEST(Layout, ClientCallWritesTheRequestFieldByField) {
    const SegmentName name;
    GatewayBase owner(name.c_str(), segmentSize(1), kTestChannelSize, 1, true);
    const RawSegment raw(name.c_str());
    std::string request;
    std::thread servant([&] {
        RawPeer peer(raw.bytes() + 48);
        peer.recv();
        peer.send("Who's there?");
        request = peer.recv();
        peer.send(std::string("VINTAKD loaded\0", 15));
        peer.send(std::string("VINTAKD convert\0", 16));
        peer.send(std::string("VINTAKD frame\0", 14));
        peer.send(std::string("a;<<<ISO_IR 100>>>\0", 19));
    });
    Gateway client(name.c_str());
    client.setTimeout(5000, true);
    const unsigned short tags[] = {0x0010, 0x0020, 0x0008, 0x0060};
    const char* files[] = {"one.dcm", ""};
    EXPECT_EQ(vintakd::vintak(client, "/in/", "/out/", "/cache/", true, false, true, false, true, 2, 1, tags,
                              2, files, 0x13, 0.5f, 7),
              "a;<<<ISO_IR 100>>>");
    servant.join();
    EXPECT_EQ(owner.getChannel(0).getTimeout().milliseconds(), 5000) << "the raised time-out is put back";

    ASSERT_EQ(request.size(), 3104u + 8 + (4 + 7) + 4);
    EXPECT_STREQ(request.data(), "/in/");
    EXPECT_STREQ(request.data() + 1024, "/out/");
    EXPECT_STREQ(request.data() + 2048, "/cache/");
    const unsigned char tail[] = {
        1,    0, 1,    0, 1, 0, 0,    0, 0x13, 0, 0, 0, 0,   0,   0,   0x3F,  // 3072
        7,    0, 0,    0, 2, 0, 0,    0, 1,    0, 0, 0, 2,   0,   0,   0,     // 3088
        0x10, 0, 0x20, 0, 8, 0, 0x60, 0, 7,    0, 0, 0, 'o', 'n', 'e', '.',  'd', 'c', 'm', 0, 0, 0, 0};
    EXPECT_EQ(request.substr(3072), std::string(reinterpret_cast<const char*>(tail), sizeof tail));
}
