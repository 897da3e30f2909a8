#include "parent/Address.h"

#include <gtest/gtest.h>

using namespace mediaworker::parent;

TEST(Address, OfAnotherKindIsRefusedWithoutItsPassword) {
    for (const char* text : {"http://cam/live.flv", "HTTPS://cam/live.flv", "file:///films/a.mp4", "a.mp4",
                             "", "/films/a://b", "C:\\films\\a.mp4", "C:/films/a.mp4"}) {
        EXPECT_EQ(addressProblem(QString::fromUtf8(text)), QString()) << text;
    }
    EXPECT_EQ(addressProblem(QStringLiteral(" rtsp://u:p@cam/live ")),
              QStringLiteral("cannot play rtsp://***@cam/live: only http, https and files"));
    for (const char* text :
         {"rtmp://cam/live", "udp://239.0.0.1:1234", "x-a+b.c://d", "3gp://x", "http:///live"}) {
        EXPECT_NE(addressProblem(QString::fromUtf8(text)), QString()) << text;
    }
    EXPECT_TRUE(isAddress(QStringLiteral("rtsp://cam")));
    EXPECT_TRUE(isAddress(QStringLiteral("http://cam")));
    EXPECT_FALSE(isAddress(QStringLiteral("/films/a.mp4")));
}
