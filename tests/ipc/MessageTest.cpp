#include "ipc/Message.h"

#include <gmock/gmock.h>

namespace {

using Corvane::Ipc::makeMessage;
using Corvane::Ipc::Message;

TEST(Message, HoldsValuesLittleEndianOneAfterTheOther) {
    const Message message = makeMessage(2, qint64{0x0102030405060708}, qint64{-2});
    EXPECT_EQ(message.type, 2);
    EXPECT_EQ(message.size, 16);
    EXPECT_EQ(message.data.toHex(), "0807060504030201feffffffffffffff");
}

TEST(Message, HoldsA32BitValueInFourBytes) {
    EXPECT_EQ(makeMessage(8, qint32{50}).data.toHex(), "32000000");
}

} // namespace
