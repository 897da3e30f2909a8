#include "parent/FrameChannel.h"

#include "support/ChildProcess.h"
#include "support/Platform.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSystemSemaphore>
#include <QtEndian>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <thread>

using namespace mediaworker::parent;
namespace platform = mediaworker::test::platform;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds kShort{30};

/// The worker's side: opens what the channel's name leads to, as a worker does.
class Writer {
public:
    explicit Writer(const QString& name)
        : file_(QDir::tempPath() + QDir::separator() + name), semaphore_(name, 1, QSystemSemaphore::Open) {
        file_.open(QIODevice::ReadWrite | QIODevice::Unbuffered);
    }

    void write(quint32 width, quint32 height, char fill) {
        semaphore_.acquire();
        file_.resize(qint64{width} * height * 4 + 72);
        writeHeader(width, height);
        file_.seek(8);
        file_.write(QByteArray(static_cast<int>(width * height * 4), fill));
        semaphore_.release();
    }
    void writeHeader(quint32 width, quint32 height) {
        char header[8];
        qToLittleEndian(width, header);
        qToLittleEndian(height, header + 4);
        file_.seek(0);
        file_.write(header, sizeof header);
    }
    void resize(qint64 bytes) { file_.resize(bytes); }
    void writePixel(const QByteArray& bgra) {
        file_.seek(8);
        file_.write(bgra);
    }
    QSystemSemaphore& semaphore() { return semaphore_; }

private:
    QFile file_;
    QSystemSemaphore semaphore_;
};

class FrameChannelTest : public ::testing::Test {
protected:
    Writer& writer() {
        if (!writer_) {
            writer_ = std::make_unique<Writer>(channel_->name());
        }
        return *writer_;
    }

    std::unique_ptr<FrameChannel> channel_ = std::make_unique<FrameChannel>();
    std::unique_ptr<Writer> writer_;
};

} // namespace

TEST_F(FrameChannelTest, ReadsNothingBeforeTheWorkerMadeTheFile) {
    EXPECT_FALSE(channel_->read());
    EXPECT_FALSE(channel_->withPicture([](const std::uint8_t*, int, int) { FAIL(); }));
}

TEST_F(FrameChannelTest, ReadsThePictureAsItStandsInTheFile) {
    writer().write(6, 4, '\x40');
    writer().writePixel(QByteArray::fromHex("0a141eff"));
    const auto picture = channel_->read();
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->size(), QSize(6, 4));
    EXPECT_EQ(picture->pixel(0, 0), qRgb(0x1e, 0x14, 0x0a)) << "the file has blue first";
    EXPECT_EQ(picture->constBits()[4], 0x40);
    EXPECT_EQ(picture->constBits()[6 * 4 * 4 - 1], 0x40);
}

TEST_F(FrameChannelTest, ShowsThePictureWithoutACopy) {
    writer().write(3, 2, '\x11');
    int calls = 0;
    EXPECT_TRUE(channel_->withPicture([&](const std::uint8_t* bgra, int width, int height) {
        ++calls;
        EXPECT_EQ(width, 3);
        EXPECT_EQ(height, 2);
        EXPECT_EQ(bgra[0], 0x11);
        EXPECT_EQ(bgra[23], 0x11);
    }));
    EXPECT_EQ(calls, 1);
}

TEST_F(FrameChannelTest, FollowsThePictureSizeUpAndDown) {
    struct Size {
        quint32 width, height;
    };
    char fill = 1;
    for (const Size size : {Size{64, 48}, Size{1920, 1080}, Size{16, 16}, Size{48, 64}, Size{64, 48}}) {
        writer().write(size.width, size.height, ++fill);
        const auto picture = channel_->read();
        ASSERT_TRUE(picture);
        EXPECT_EQ(picture->size(), QSize(static_cast<int>(size.width), static_cast<int>(size.height)));
        EXPECT_EQ(picture->constBits()[picture->sizeInBytes() - 1], fill);
    }
}

TEST_F(FrameChannelTest, ReadsNothingFromAFileThatWasCutAfterItWasMapped) {
    writer().write(640, 480, '\x22');
    ASSERT_TRUE(channel_->read());
    for (const qint64 bytes : {640 * 480 * 4 + 71, 100000, 4096, 72, 71, 8, 1, 0}) {
        writer().resize(bytes);
        EXPECT_FALSE(channel_->read()) << bytes;
    }
    writer().write(640, 480, '\x33');
    EXPECT_TRUE(channel_->read());
}

struct Header {
    quint32 width, height;
};

class LyingHeaders : public FrameChannelTest, public ::testing::WithParamInterface<Header> {};

TEST_P(LyingHeaders, ReadAsNothing) {
    writer().write(16, 16, '\x44');
    writer().writeHeader(GetParam().width, GetParam().height);
    EXPECT_FALSE(channel_->read());
}

INSTANTIATE_TEST_SUITE_P(FrameChannel, LyingHeaders,
                         ::testing::Values(Header{0, 0}, Header{0, 16}, Header{16, 0}, Header{17, 16},
                                           Header{16, 17}, Header{0xFFFFFFFF, 0xFFFFFFFF},
                                           Header{0x80000000, 1},
                                           Header{0x40000000, 4}, // w * h * 4 is 0 in 32 bits
                                           Header{0x10000, 0x10000}, Header{0x1FFFFFFF, 0x1FFFFFFF}));

TEST_F(FrameChannelTest, AFileMayBeLargerThanItsPicture) {
    writer().write(16, 16, '\x55');
    writer().writeHeader(8, 8);
    const auto picture = channel_->read();
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->size(), QSize(8, 8));
}

TEST_F(FrameChannelTest, ReadsUnderTheSemaphore) {
    writer().write(4, 4, '\x66');
    ASSERT_TRUE(writer().semaphore().acquire());
    EXPECT_FALSE(channel_->read(kShort));
    ASSERT_TRUE(writer().semaphore().release());
    EXPECT_TRUE(channel_->read(kShort));
    EXPECT_TRUE(channel_->read(kShort)) << "a read gives the semaphore back";
}

TEST_F(FrameChannelTest, GivesUpAfterItsPatience) {
    ASSERT_TRUE(writer().semaphore().acquire());
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(channel_->hold(kShort));
    EXPECT_GE(timer.elapsed(), kShort.count() - 1);
    ASSERT_TRUE(writer().semaphore().release());
}

TEST_F(FrameChannelTest, HoldKeepsTheWorkerOutUntilItGoes) {
    std::atomic<bool> entered = false;
    FrameChannel::Hold hold = channel_->hold();
    ASSERT_TRUE(hold);
    std::thread worker([&] {
        writer().semaphore().acquire();
        entered = true;
        writer().semaphore().release();
    });
    std::this_thread::sleep_for(kShort);
    EXPECT_FALSE(entered);
    hold.release();
    worker.join();
    EXPECT_TRUE(entered);
}

TEST_F(FrameChannelTest, HoldIsReleasedOnceHoweverItMoves) {
    writer().write(4, 4, '\x66');
    {
        FrameChannel::Hold first = channel_->hold();
        FrameChannel::Hold second = std::move(first);
        EXPECT_TRUE(second);
        FrameChannel::Hold third;
        third = std::move(second);
        EXPECT_TRUE(channel_->read(third));
        EXPECT_FALSE(channel_->read(kShort));
    }
    FrameChannel::Hold again = channel_->hold(kShort);
    EXPECT_TRUE(again);
    EXPECT_FALSE(channel_->hold(kShort)) << "the count is one, not two";
}

TEST_F(FrameChannelTest, AnEmptyHoldReadsNothing) {
    writer().write(4, 4, '\x66');
    EXPECT_FALSE(channel_->read(FrameChannel::Hold()));
}

TEST_F(FrameChannelTest, AReaderThatThrowsGivesTheSemaphoreBack) {
    writer().write(4, 4, '\x66');
    EXPECT_THROW(channel_->withPicture([](const std::uint8_t*, int, int) { throw std::runtime_error("no"); }),
                 std::runtime_error);
    EXPECT_TRUE(channel_->read(kShort));
}

TEST_F(FrameChannelTest, AKilledWorkerGivesTheSemaphoreBack) {
    mediaworker::test::ChildProcess worker(
        {.command = {FAKE_WORKER, "hold;crash", channel_->name().toStdString(), "nobody"}});
    EXPECT_GT(worker.wait(), 1);
    EXPECT_EQ(static_cast<bool>(channel_->hold(kShort)), !platform::kIsWindows);
    channel_->workerEnded();
    EXPECT_TRUE(channel_->hold(kShort));
    channel_->workerEnded(); // once more, or without need, changes nothing
    const FrameChannel::Hold one = channel_->hold(kShort);
    EXPECT_TRUE(one);
    EXPECT_FALSE(channel_->hold(kShort));
    channel_->workerEnded();
    EXPECT_FALSE(channel_->hold(kShort)) << "this process holds it";
}

TEST_F(FrameChannelTest, RemovesFileAndSemaphoreInTheEnd) {
    if (platform::kIsWindows) {
        GTEST_SKIP() << "the semaphore has no file on Windows";
    }
    const QString file = channel_->filePath();
    const QString key = QDir::tempPath() + u'/' + SharedLock::nativeName(channel_->name());
    writer().write(4, 4, '\x66');
    EXPECT_TRUE(QFileInfo::exists(file));
    EXPECT_TRUE(QFileInfo::exists(key));
    channel_.reset();
    EXPECT_FALSE(QFileInfo::exists(file));
    EXPECT_FALSE(QFileInfo::exists(key));
}

TEST_F(FrameChannelTest, ANamedChannelTakesOverWhatWasLeftBehind) {
    const QString name = channel_->name() + QStringLiteral("-left");
    QSystemSemaphore left(name, 0, QSystemSemaphore::Create);
    FrameChannel channel(name);
    EXPECT_EQ(channel.name(), name);
    EXPECT_TRUE(channel.hold(kShort)) << "whoever held it is gone";
}

TEST_F(FrameChannelTest, TheOwnerAloneMayOpenTheSemaphore) {
    if (platform::kIsWindows) {
        GTEST_SKIP() << "the semaphore has no file on Windows";
    }
    const QString key = QDir::tempPath() + u'/' + SharedLock::nativeName(channel_->name());
    EXPECT_EQ(QFileInfo(key).permissions() &
                  ~(QFile::ReadUser | QFile::WriteUser | QFile::ReadOwner | QFile::WriteOwner),
              QFile::Permissions());
}
