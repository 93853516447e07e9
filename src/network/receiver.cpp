// The RTP receiver: checks packets, places their samples by timestamp and counts what went wrong.
#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "kvaudio/aoip.h"

struct KVAudioAoipReceiver {
 public:
  explicit KVAudioAoipReceiver(const KVAudioAoipReceiverConfig &c)
      : config_(c),
        samples_(size_t{c.bufferFrames} * c.channels),
        filled_(c.bufferFrames),
        seen_(65536 / 64) {}

  static bool Valid(const KVAudioAoipReceiverConfig &c) {
    return c.channels >= 1 && c.channels <= KVAUDIO_AOIP_MAX_CHANNELS &&
           (c.encoding == KVAUDIO_AOIP_L16 || c.encoding == KVAUDIO_AOIP_L24) && c.bufferFrames >= 1 &&
           c.bufferFrames <= 262144 && c.framesPerPacket <= c.bufferFrames && c.reserved == 0;
  }

  uint32_t Push(const uint8_t *packet, uint32_t bytes) {
    KVAudioRtpHeader h;
    uint32_t r = KVAudioRtpParseHeader(packet, bytes, &h);
    const uint32_t frameBytes = config_.channels * config_.encoding / 8;
    if (r == KVAUDIO_AOIP_OK && config_.payloadType < 128 && h.payloadType != config_.payloadType)
      r = KVAUDIO_AOIP_BAD_PAYLOAD_TYPE;
    if (r == KVAUDIO_AOIP_OK && (h.payloadBytes == 0 || h.payloadBytes % frameBytes != 0))
      r = KVAUDIO_AOIP_PARTIAL_PERIOD;
    const uint32_t frames = h.payloadBytes / frameBytes;
    if (r == KVAUDIO_AOIP_OK && config_.framesPerPacket != 0 && frames != config_.framesPerPacket)
      r = KVAUDIO_AOIP_BAD_PACKET_TIME;
    if (r == KVAUDIO_AOIP_OK && frames > config_.bufferFrames) r = KVAUDIO_AOIP_BUFFER_FULL;
    if (r != KVAUDIO_AOIP_OK) {
      ++stats_.malformed;
      return r;
    }
    // A first packet, or a sequence number too far from the highest one seen to be reordering:
    // the stream (re)starts right after the last period placed.
    const int16_t distance = static_cast<int16_t>(h.sequence - static_cast<uint16_t>(highest_));
    if (!started_ || distance > kRestartDistance || distance < -kRestartDistance) Start(h, frames);

    // Sequence number extended to 64 bits around the highest one seen.
    const int16_t diff = static_cast<int16_t>(h.sequence - static_cast<uint16_t>(highest_));
    const int64_t ext = highest_ + diff;
    if (diff <= 0 && Seen(h.sequence)) {
      ++stats_.duplicated;
      return KVAUDIO_AOIP_DUPLICATE;
    }
    uint32_t offset = offset_;
    bool jump = false;
    if (diff > 0) {
      const uint32_t expected = highestTs_ + static_cast<uint32_t>(diff) * highestFrames_;
      jump = h.timestamp != expected;
      if (jump) offset += expected - h.timestamp;
    }
    const int32_t at = static_cast<int32_t>(h.timestamp + offset - read_);
    if (at >= 0 && static_cast<uint64_t>(at) + frames > config_.bufferFrames) {
      ++stats_.overflows;
      return KVAUDIO_AOIP_BUFFER_FULL;
    }
    MarkSeen(h.sequence, diff);
    if (ext < lowest_) lowest_ = ext;
    if (diff > 0) {
      highest_ = ext;
      highestTs_ = h.timestamp;
      highestFrames_ = frames;
      offset_ = offset;
      stats_.timestampJumps += jump;
    } else {
      ++stats_.reordered;
    }
    if (at < 0) {
      ++stats_.late;
      return KVAUDIO_AOIP_LATE;
    }
    Place(packet + h.payloadOffset, static_cast<uint32_t>(at), frames);
    ++stats_.received;
    return KVAUDIO_AOIP_OK;
  }

  uint32_t Available() const {
    const int32_t ahead = static_cast<int32_t>(end_ - read_);
    return started_ && ahead > 0 ? static_cast<uint32_t>(ahead) : 0;
  }

  void Pull(int32_t *out, uint32_t frames) {
    const size_t channels = config_.channels;
    for (uint32_t f = 0; f < frames; ++f, ++read_) {
      const size_t slot = read_ % config_.bufferFrames;
      int32_t *dst = out + f * channels;
      if (filled_[slot]) {
        std::memcpy(dst, &samples_[slot * channels], channels * sizeof(int32_t));
        filled_[slot] = 0;
      } else {
        std::memset(dst, 0, channels * sizeof(int32_t));
        ++stats_.silentFrames;
      }
    }
    if (static_cast<int32_t>(end_ - read_) < 0) end_ = read_;
  }

  KVAudioAoipStats Stats() const {
    KVAudioAoipStats s = stats_;
    const uint64_t expected = started_ ? static_cast<uint64_t>(highest_ - lowest_ + 1) : 0;
    const uint64_t arrived = stats_.received + stats_.late - arrivedBefore_;
    s.lost = lostBefore_ + (expected > arrived ? expected - arrived : 0);
    return s;
  }

 private:
  void Start(const KVAudioRtpHeader &h, uint32_t frames) {
    if (started_) {
      lostBefore_ = Stats().lost;
      arrivedBefore_ = stats_.received + stats_.late;
      ++stats_.timestampJumps;
      std::fill(seen_.begin(), seen_.end(), 0);
    }
    started_ = true;
    // As if the packet before it had just arrived, so the first one is taken in order.
    highest_ = int64_t{h.sequence} - 1;
    lowest_ = h.sequence;
    highestTs_ = h.timestamp - frames;
    highestFrames_ = frames;
    offset_ = end_ - h.timestamp;
  }

  bool Seen(uint16_t seq) const { return (seen_[seq / 64] >> (seq % 64) & 1) != 0; }

  // Marks seq; when the highest number advances, the numbers half the space behind it are
  // forgotten, so a wrapped sequence is not taken for a duplicate.
  void MarkSeen(uint16_t seq, int16_t diff) {
    for (int k = 1; k <= diff; ++k) {
      const uint16_t old = static_cast<uint16_t>(static_cast<uint16_t>(highest_) + k + 32768);
      seen_[old / 64] &= ~(uint64_t{1} << (old % 64));
    }
    seen_[seq / 64] |= uint64_t{1} << (seq % 64);
  }

  // Frames of a checked payload into the ring, at `at` periods past the read position.
  void Place(const uint8_t *payload, uint32_t at, uint32_t frames) {
    const size_t channels = config_.channels, frameBytes = channels * config_.encoding / 8;
    uint32_t done = 0;
    while (done < frames) {
      const size_t slot = (read_ + at + done) % config_.bufferFrames;
      const uint32_t run = static_cast<uint32_t>(std::min<size_t>(frames - done, config_.bufferFrames - slot));
      KVAudioAoipUnpack32(&samples_[slot * channels], payload + done * frameBytes, config_.encoding, config_.channels,
                          run);
      std::memset(&filled_[slot], 1, run);
      done += run;
    }
    const uint32_t end = read_ + at + frames;
    if (static_cast<int32_t>(end - end_) > 0) end_ = end;
  }

  KVAudioAoipReceiverConfig config_;
  std::vector<int32_t> samples_;
  std::vector<uint8_t> filled_;
  std::vector<uint64_t> seen_;
  KVAudioAoipStats stats_{};
  bool started_ = false;
  int64_t highest_ = 0, lowest_ = 0;
  uint32_t highestTs_ = 0, highestFrames_ = 0;
  uint32_t offset_ = 0;  // timestamp + offset_ = stream position in periods
  uint32_t read_ = 0, end_ = 0;  // end_ is never behind read_
  uint64_t lostBefore_ = 0, arrivedBefore_ = 0;  // of the segments before a restart
  static constexpr int16_t kRestartDistance = 1000;
};

extern "C" {

KVAudioAoipReceiver *KVAudioAoipReceiverOpen(const KVAudioAoipReceiverConfig *config) {
  if (!config || !KVAudioAoipReceiver::Valid(*config)) return nullptr;
  try {
    return new KVAudioAoipReceiver(*config);
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
}

uint32_t KVAudioAoipReceiverPush(KVAudioAoipReceiver *receiver, const uint8_t *packet, uint32_t bytes) {
  if (!receiver) return KVAUDIO_AOIP_NULL_BUFFER;
  return receiver->Push(packet, bytes);
}

uint32_t KVAudioAoipReceiverAvailable(const KVAudioAoipReceiver *receiver) {
  return receiver ? receiver->Available() : 0;
}

uint32_t KVAudioAoipReceiverPull(KVAudioAoipReceiver *receiver, int32_t *samples, uint32_t frames) {
  if (frames == 0) return KVAUDIO_AOIP_OK;
  if (!receiver || !samples) return KVAUDIO_AOIP_NULL_BUFFER;
  receiver->Pull(samples, frames);
  return KVAUDIO_AOIP_OK;
}

uint32_t KVAudioAoipReceiverGetStats(const KVAudioAoipReceiver *receiver, KVAudioAoipStats *stats) {
  if (!receiver || !stats) return KVAUDIO_AOIP_NULL_BUFFER;
  *stats = receiver->Stats();
  return KVAUDIO_AOIP_OK;
}

void KVAudioAoipReceiverClose(KVAudioAoipReceiver *receiver) { delete receiver; }

}  // extern "C"
