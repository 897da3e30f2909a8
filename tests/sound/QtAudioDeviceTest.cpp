#include "sound/module/QtAudioDevice.h"

#include <gtest/gtest.h>

namespace {

TEST(QtAudioDevice, GetsLittleEndian16BitSamplesInTheRateAndChannelsOfTheStream) {
    const QAudioFormat format = toQAudioFormat({.sampleRate = 44100, .channels = 6});
    EXPECT_TRUE(format.isValid());
    EXPECT_EQ(format.sampleRate(), 44100);
    EXPECT_EQ(format.channelCount(), 6);
    EXPECT_EQ(format.codec(), "audio/pcm");
    EXPECT_EQ(format.sampleSize(), 16);
    EXPECT_EQ(format.byteOrder(), QAudioFormat::LittleEndian);
    EXPECT_EQ(format.sampleType(), QAudioFormat::SignedInt);
}

TEST(QtAudioDevice, HasNoValidFormatBeforeTheStreamTellsOne) {
    EXPECT_FALSE(toQAudioFormat({}).isValid());
}

TEST(QtAudioDevice, KeepsApartWhatCanGoWrong) {
    EXPECT_EQ(toAudioError(QAudio::NoError), AudioError::None);
    EXPECT_EQ(toAudioError(QAudio::OpenError), AudioError::Open);
    EXPECT_EQ(toAudioError(QAudio::IOError), AudioError::ReadWrite);
    EXPECT_EQ(toAudioError(QAudio::UnderrunError), AudioError::Underrun);
    EXPECT_EQ(toAudioError(QAudio::FatalError), AudioError::Fatal);
}

} // namespace
