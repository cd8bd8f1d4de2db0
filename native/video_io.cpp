#include "native/video_io.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>

#include "core/imaging/blend.h"

namespace zorvex::native {
namespace {

// The containers we read moving pictures from; anything else FFmpeg could open is left alone.
constexpr const char* kReadable[] = {"gif", "mov,mp4,m4a,3gp,3g2,mj2", "matroska,webm", "avi", "mpegts", "nut"};

std::string lower(std::string s) {
  for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}
bool endsWith(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

std::string avError(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

struct FormatInputDeleter {
  void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct CodecDeleter {
  void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameDeleter {
  void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketDeleter {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct SwsDeleter {
  void operator()(SwsContext* c) const { sws_freeContext(c); }
};
struct SwrDeleter {
  void operator()(SwrContext* c) const { swr_free(&c); }
};
struct FifoDeleter {
  void operator()(AVAudioFifo* f) const { av_audio_fifo_free(f); }
};
using InputPtr = std::unique_ptr<AVFormatContext, FormatInputDeleter>;
using CodecPtr = std::unique_ptr<AVCodecContext, CodecDeleter>;
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;
using SwsPtr = std::unique_ptr<SwsContext, SwsDeleter>;
using SwrPtr = std::unique_ptr<SwrContext, SwrDeleter>;

int64_t frameDuration(const AVFrame* f) {
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(58, 2, 100)
  return f->duration;
#else
  return f->pkt_duration;
#endif
}

// Degrees the picture is turned clockwise to be shown as its display matrix asks, 0, 90, 180 or 270.
int displayTurn(const AVStream* stream) {
  const uint8_t* matrix = nullptr;
#if LIBAVFORMAT_VERSION_INT >= AV_VERSION_INT(60, 15, 100)
  if (const AVPacketSideData* sd = av_packet_side_data_get(stream->codecpar->coded_side_data,
                                                          stream->codecpar->nb_coded_side_data,
                                                          AV_PKT_DATA_DISPLAYMATRIX))
    matrix = sd->data;
#else
  matrix = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
#endif
  if (!matrix) return 0;
  const double ccw = av_display_rotation_get(reinterpret_cast<const int32_t*>(matrix));
  if (std::isnan(ccw)) return 0;
  const int turn = int(std::lround(-ccw / 90.0)) * 90;
  return ((turn % 360) + 360) % 360;
}

UIImageOrientation orientationOfTurn(int turn) {
  switch (turn) {
    case 90: return UIImageOrientationRight;
    case 180: return UIImageOrientationDown;
    case 270: return UIImageOrientationLeft;
    default: return UIImageOrientationUp;
  }
}

// The first bytes of a file, or nothing when it isn't a regular file that can be read.
std::vector<uint8_t> head(const std::string& path, size_t n) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
  std::ifstream in(path, std::ios::binary);
  std::vector<uint8_t> bytes(n + AVPROBE_PADDING_SIZE, 0);
  in.read(reinterpret_cast<char*>(bytes.data()), std::streamsize(n));
  bytes.resize(size_t(in.gcount()));
  return bytes;
}

// The demuxer for the file's content when it is one we read, else null.
const AVInputFormat* probe(const std::string& path) {
  std::vector<uint8_t> bytes = head(path, 4096);
  if (bytes.size() < 12) return nullptr;
  const size_t n = bytes.size();
  bytes.resize(n + AVPROBE_PADDING_SIZE, 0);
  AVProbeData data{};
  data.filename = "";  // by content alone
  data.buf = bytes.data();
  data.buf_size = int(n);
  int score = 0;
  const AVInputFormat* format = av_probe_input_format3(&data, 1, &score);
  if (!format || score < AVPROBE_SCORE_EXTENSION) return nullptr;
  for (const char* name : kReadable)
    if (std::strcmp(format->name, name) == 0) return format;
  return nullptr;
}

// Rows of premultiplied RGBA bytes (colour over black), contiguous, with a spare row after them for
// swscale's reads.
std::vector<uint8_t> rgbaOf(const CGImageRef& picture) {
  const PixelView& p = picture->pixels();
  std::vector<uint8_t> out(size_t(p.width) * size_t(p.height + 1) * 4);
  for (int32_t y = 0; y < p.height; ++y)
    raster::loadRow(p.format, p.row(y), p.width, reinterpret_cast<raster::RGBA8*>(&out[size_t(y) * size_t(p.width) * 4]));
  return out;
}

// Quiet from the start, before any file is opened.
const bool gQuietByDefault = [] {
  av_log_set_level(AV_LOG_QUIET);
  return true;
}();

}  // namespace

void setLibraryMessages(bool verbose) { av_log_set_level(verbose ? AV_LOG_WARNING : AV_LOG_QUIET); }

bool isAnimationFile(const std::string& path) { return probe(path) != nullptr; }

bool isGifPath(const std::string& path) { return endsWith(lower(path), ".gif"); }

bool isAnimationPath(const std::string& path) {
  const std::string p = lower(path);
  return isGifPath(p) || endsWith(p, ".mp4") || endsWith(p, ".m4v") || endsWith(p, ".mov") || endsWith(p, ".mkv");
}

std::vector<uint8_t> scaledRgb(const CGImageRef& picture, int32_t w, int32_t h) {
  const int32_t sw = picture->width(), sh = picture->height();
  const std::vector<uint8_t> rgba = rgbaOf(picture);
  SwsPtr sws(sws_getContext(sw, sh, AV_PIX_FMT_RGBA, w, h, AV_PIX_FMT_RGB24, SWS_AREA | SWS_ACCURATE_RND, nullptr,
                            nullptr, nullptr));
  if (!sws) return {};
  // Padded rows for swscale, then packed.
  const int stride = FFALIGN(w * 3, 64);
  std::vector<uint8_t> padded(size_t(stride) * size_t(h + 1));
  const uint8_t* src[4] = {rgba.data(), nullptr, nullptr, nullptr};
  const int srcStride[4] = {sw * 4, 0, 0, 0};
  uint8_t* dst[4] = {padded.data(), nullptr, nullptr, nullptr};
  const int dstStride[4] = {stride, 0, 0, 0};
  sws_scale(sws.get(), src, srcStride, 0, sh, dst, dstStride);
  std::vector<uint8_t> out(size_t(w) * size_t(h) * 3);
  for (int32_t y = 0; y < h; ++y)
    std::memcpy(&out[size_t(y) * size_t(w) * 3], &padded[size_t(y) * size_t(stride)], size_t(w) * 3);
  return out;
}

// ----- Reading -----

struct VideoReader::State {
  InputPtr input;
  CodecPtr decoder;
  int stream = -1;
  VideoInfo info;
  UIImageOrientation orientation = UIImageOrientationUp;
  SwsPtr sws;
  PacketPtr packet{av_packet_alloc()};
  FramePtr decoded{av_frame_alloc()};
  bool flushed = false;     // the decoder has been told the input ended
  bool drained = false;     // and has given its last frame
  int64_t firstPts = AV_NOPTS_VALUE;
  int64_t lastPts = AV_NOPTS_VALUE;
  int64_t streamEnd = AV_NOPTS_VALUE;  // where the container says the stream ends
  int64_t lastDuration = 0;            // of the frame before
  std::deque<VideoFrame> ready;  // decoded frames whose duration waits on the next one
  std::deque<int64_t> ownDurations;

  // Decodes until one more frame is in `ready` or the stream has ended.
  bool decodeOne(std::string& error);
  bool convert(const AVFrame* f, VideoFrame& out, std::string& error);
};

VideoReader::VideoReader() : s_(std::make_unique<State>()) {}
VideoReader::~VideoReader() = default;
const VideoInfo& VideoReader::info() const { return s_->info; }

bool VideoReader::open(const std::string& path, std::string& error) {
  const AVInputFormat* format = probe(path);
  if (!format) {
    error = "not a GIF or a video that can be read";
    return false;
  }
  AVFormatContext* raw = nullptr;
  if (int e = avformat_open_input(&raw, path.c_str(), format, nullptr); e < 0) {
    error = "can't open it (" + avError(e) + ")";
    return false;
  }
  s_->input.reset(raw);
  if (int e = avformat_find_stream_info(raw, nullptr); e < 0) {
    error = "can't read its streams (" + avError(e) + ")";
    return false;
  }
  const AVCodec* codec = nullptr;
  s_->stream = av_find_best_stream(raw, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
  if (s_->stream < 0 || !codec) {
    error = s_->stream == AVERROR_DECODER_NOT_FOUND ? "its video is in a form that can't be decoded" : "it holds no video";
    return false;
  }
  AVStream* st = raw->streams[s_->stream];
  s_->decoder.reset(avcodec_alloc_context3(codec));
  if (!s_->decoder || avcodec_parameters_to_context(s_->decoder.get(), st->codecpar) < 0) {
    error = "not enough memory for its decoder";
    return false;
  }
  s_->decoder->thread_count = 0;
  if (int e = avcodec_open2(s_->decoder.get(), codec, nullptr); e < 0) {
    error = "can't decode its video (" + avError(e) + ")";
    return false;
  }
  VideoInfo& info = s_->info;
  info.width = st->codecpar->width;
  info.height = st->codecpar->height;
  if (info.width < 1 || info.height < 1 || int64_t(info.width) * info.height > 100'000'000 ||
      info.width > 32768 || info.height > 32768) {
    error = "its frames are " + std::to_string(info.width) + "x" + std::to_string(info.height) +
            " pixels, which is no size to work on";
    return false;
  }
  info.timeBase = {st->time_base.num, st->time_base.den};
  AVRational rate = st->avg_frame_rate.num > 0 ? st->avg_frame_rate : st->r_frame_rate;
  info.frameRate = {rate.num, rate.den};
  info.frameCount = st->nb_frames;
  if (info.frameCount <= 0 && st->duration > 0 && rate.num > 0)
    info.frameCount = int64_t(std::llround(double(st->duration) * av_q2d(st->time_base) * av_q2d(rate)));
  if (const int audio = av_find_best_stream(raw, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0); audio >= 0) {
    info.hasAudio = true;
    const int64_t rate = raw->streams[audio]->codecpar->bit_rate;
    info.audioBitRate = rate > 0 ? rate : 192000;
  }
  if (st->start_time != AV_NOPTS_VALUE) info.startSeconds = double(st->start_time) * av_q2d(st->time_base);
  info.format = format->name;
  s_->orientation = orientationOfTurn(displayTurn(st));
  if (st->duration > 0) s_->streamEnd = (st->start_time == AV_NOPTS_VALUE ? 0 : st->start_time) + st->duration;
  for (unsigned i = 0; i < raw->nb_streams; ++i)
    if (int(i) != s_->stream) raw->streams[i]->discard = AVDISCARD_ALL;
  return true;
}

bool VideoReader::State::convert(const AVFrame* f, VideoFrame& out, std::string& error) {
  const int w = f->width, h = f->height;
  if (w != info.width || h != info.height) {
    // Frames that change size mid-stream are scaled to the first one's.
  }
  const AVPixelFormat from = AVPixelFormat(f->format);
  const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(from);
  const bool alpha = desc && (desc->flags & AV_PIX_FMT_FLAG_ALPHA);
  sws.reset(sws_getCachedContext(sws.release(), w, h, from, info.width, info.height, AV_PIX_FMT_RGBA, SWS_BICUBIC,
                                 nullptr, nullptr, nullptr));
  if (!sws) {
    error = "can't convert its frames";
    return false;
  }
  // The colours of the stream's own matrix and range, where it says them.
  const int space = f->colorspace == AVCOL_SPC_UNSPECIFIED ? SWS_CS_DEFAULT : int(f->colorspace);
  sws_setColorspaceDetails(sws.get(), sws_getCoefficients(space), f->color_range == AVCOL_RANGE_JPEG,
                           sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
  // swscale's vector code writes a little past the end of a row: rows are padded, and a spare row.
  const int stride = FFALIGN(info.width * 4, 64);
  std::shared_ptr<uint8_t[]> pixels(new (std::nothrow) uint8_t[size_t(stride) * size_t(info.height + 1)]);
  if (!pixels) {
    error = "not enough memory for a frame";
    return false;
  }
  uint8_t* dst[4] = {pixels.get(), nullptr, nullptr, nullptr};
  const int dstStride[4] = {stride, 0, 0, 0};
  sws_scale(sws.get(), f->data, f->linesize, 0, h, dst, dstStride);
  bool opaque = true;
  if (alpha) {
    for (int32_t y = 0; y < info.height; ++y) {
      uint8_t* row = &pixels[size_t(y) * size_t(stride)];
      for (int32_t x = 0; x < info.width; ++x) {
        uint8_t* p = row + 4 * x;
        if (p[3] == 255) continue;
        opaque = false;
        for (int c = 0; c < 3; ++c) p[c] = uint8_t(raster::div255(p[c] * uint32_t{p[3]}));
      }
    }
  }
  const PixelView view{pixels.get(), info.width, info.height, stride, opaque ? PixelFormat::RGBX : PixelFormat::RGBA};
  out.picture = UIImage{std::make_shared<const CGImage>(std::shared_ptr<const uint8_t[]>(std::move(pixels)), view),
                        orientation};
  return true;
}

bool VideoReader::State::decodeOne(std::string& error) {
  while (!drained) {
    const int got = avcodec_receive_frame(decoder.get(), decoded.get());
    if (got == 0) {
      int64_t pts = decoded->best_effort_timestamp;
      if (pts == AV_NOPTS_VALUE) pts = lastPts == AV_NOPTS_VALUE ? 0 : lastPts + 1;
      if (lastPts != AV_NOPTS_VALUE && pts <= lastPts) pts = lastPts + 1;  // never backwards
      if (firstPts == AV_NOPTS_VALUE) firstPts = pts;
      lastPts = pts;
      VideoFrame frame;
      if (!convert(decoded.get(), frame, error)) return false;
      frame.pts = pts - firstPts;
      ready.push_back(std::move(frame));
      ownDurations.push_back(frameDuration(decoded.get()));
      av_frame_unref(decoded.get());
      return true;
    }
    if (got == AVERROR_EOF) {
      drained = true;
      break;
    }
    if (got != AVERROR(EAGAIN)) {
      error = "its video is damaged (" + avError(got) + ")";
      return false;
    }
    if (flushed) {
      drained = true;
      break;
    }
    const int read = av_read_frame(input.get(), packet.get());
    if (read == AVERROR_EOF || read == AVERROR(EIO) || (read < 0 && avio_feof(input->pb))) {
      avcodec_send_packet(decoder.get(), nullptr);
      flushed = true;
      continue;
    }
    if (read < 0) {
      error = "can't read it (" + avError(read) + ")";
      return false;
    }
    if (packet->stream_index == stream) {
      const int sent = avcodec_send_packet(decoder.get(), packet.get());
      if (sent < 0 && sent != AVERROR(EAGAIN) && sent != AVERROR_INVALIDDATA) {
        av_packet_unref(packet.get());
        error = "its video is damaged (" + avError(sent) + ")";
        return false;
      }
    }
    av_packet_unref(packet.get());
  }
  return true;
}

bool VideoReader::next(VideoFrame& frame, std::string& error) {
  error.clear();
  if (!s_->input) {
    error = "not open";
    return false;
  }
  // A frame lasts until the next one starts; only the last takes the duration the file gives it.
  while (s_->ready.size() < 2 && !s_->drained)
    if (!s_->decodeOne(error)) return false;
  if (s_->ready.empty()) return false;
  frame = std::move(s_->ready.front());
  s_->ready.pop_front();
  const int64_t own = s_->ownDurations.front();
  s_->ownDurations.pop_front();
  // The container's own end of the stream tells the last frame's length best (MP4 keeps no length of
  // its own for the last picture shown), unless it is far off.
  const int64_t toEnd = s_->streamEnd == AV_NOPTS_VALUE ? 0 : s_->streamEnd - (s_->firstPts + frame.pts);
  if (!s_->ready.empty()) {
    frame.duration = s_->ready.front().pts - frame.pts;
  } else if (toEnd > 0 && (s_->lastDuration == 0 || toEnd <= 4 * s_->lastDuration)) {
    frame.duration = toEnd;
  } else if (own > 0) {
    frame.duration = own;
  } else if (s_->info.frameRate.num > 0) {
    frame.duration = std::max<int64_t>(1, av_rescale_q(1, av_inv_q({s_->info.frameRate.num, s_->info.frameRate.den}),
                                                      {s_->info.timeBase.num, s_->info.timeBase.den}));
  } else {
    frame.duration = 1;
  }
  s_->lastDuration = frame.duration;
  return true;
}

// ----- Writing -----

// The audio of another file, carried into the output as it is, or made AAC where the container can't
// take it as it is.
struct AudioCarry {
  InputPtr input;
  int source = -1;
  AVStream* out = nullptr;
  bool transcode = false;
  CodecPtr decoder, encoder;
  SwrPtr resampler;
  std::unique_ptr<AVAudioFifo, FifoDeleter> fifo;
  int64_t samplesWritten = 0;
  int64_t startPts = 0;  // the source's time of the first video frame, which becomes 0
  PacketPtr packet{av_packet_alloc()};
  FramePtr frame{av_frame_alloc()};
  bool ended = false;
  double carriedUntil = 0;  // seconds of the source written so far

  bool open(const std::string& path, double start, AVFormatContext* output, std::string& error);
  // Writes the audio up to `seconds` (all of it for infinity).
  bool carry(AVFormatContext* output, double seconds, std::string& error);
  bool encodeFifo(AVFormatContext* output, bool flush, std::string& error);
  // Resamples `f` (for null, what the resampler still holds) into the FIFO; false without memory.
  bool resample(const AVFrame* f);
};

bool AudioCarry::resample(const AVFrame* f) {
  const int in = f ? f->nb_samples : 0;
  const int room = swr_get_out_samples(resampler.get(), in);
  if (room <= 0) return true;
  uint8_t** buffer = nullptr;
  if (av_samples_alloc_array_and_samples(&buffer, nullptr, encoder->ch_layout.nb_channels, room, encoder->sample_fmt,
                                         0) < 0)
    return false;
  const int n = swr_convert(resampler.get(), buffer, room, f ? const_cast<const uint8_t**>(f->extended_data) : nullptr,
                            in);
  if (n > 0) av_audio_fifo_write(fifo.get(), reinterpret_cast<void**>(buffer), n);
  av_freep(&buffer[0]);
  av_freep(&buffer);
  return true;
}

bool AudioCarry::open(const std::string& path, double start, AVFormatContext* output, std::string& error) {
  const AVInputFormat* format = probe(path);
  AVFormatContext* raw = nullptr;
  if (!format || avformat_open_input(&raw, path.c_str(), format, nullptr) < 0) return true;  // no audio to carry
  input.reset(raw);
  if (avformat_find_stream_info(raw, nullptr) < 0) return true;
  const AVCodec* decoderCodec = nullptr;
  source = av_find_best_stream(raw, AVMEDIA_TYPE_AUDIO, -1, -1, &decoderCodec, 0);
  if (source < 0) {
    input.reset();
    return true;
  }
  for (unsigned i = 0; i < raw->nb_streams; ++i)
    if (int(i) != source) raw->streams[i]->discard = AVDISCARD_ALL;
  startPts = int64_t(std::llround(start / av_q2d(raw->streams[source]->time_base)));
  const AVCodecParameters* par = raw->streams[source]->codecpar;
  out = avformat_new_stream(output, nullptr);
  if (!out) {
    error = "not enough memory for the audio";
    return false;
  }
  transcode = avformat_query_codec(output->oformat, par->codec_id, FF_COMPLIANCE_NORMAL) != 1;
  if (!transcode) {
    avcodec_parameters_copy(out->codecpar, par);
    out->codecpar->codec_tag = 0;
    out->time_base = raw->streams[source]->time_base;
    return true;
  }
  // Decoded, resampled and encoded as AAC.
  const AVCodec* aac = avcodec_find_encoder(AV_CODEC_ID_AAC);
  if (!decoderCodec || !aac) {
    error = "its audio can't be carried into this kind of file";
    return false;
  }
  decoder.reset(avcodec_alloc_context3(decoderCodec));
  encoder.reset(avcodec_alloc_context3(aac));
  if (!decoder || !encoder || avcodec_parameters_to_context(decoder.get(), par) < 0 ||
      avcodec_open2(decoder.get(), decoderCodec, nullptr) < 0) {
    error = "its audio can't be decoded";
    return false;
  }
  encoder->sample_rate = decoder->sample_rate > 0 ? decoder->sample_rate : 48000;
  encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
  av_channel_layout_default(&encoder->ch_layout, std::clamp(decoder->ch_layout.nb_channels, 1, 2));
  encoder->bit_rate = 128000;
  encoder->time_base = {1, encoder->sample_rate};
  if (output->oformat->flags & AVFMT_GLOBALHEADER) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  if (int e = avcodec_open2(encoder.get(), aac, nullptr); e < 0) {
    error = "can't make its audio AAC (" + avError(e) + ")";
    return false;
  }
  avcodec_parameters_from_context(out->codecpar, encoder.get());
  out->time_base = encoder->time_base;
  SwrContext* swr = nullptr;
  if (swr_alloc_set_opts2(&swr, &encoder->ch_layout, encoder->sample_fmt, encoder->sample_rate, &decoder->ch_layout,
                          decoder->sample_fmt, decoder->sample_rate, 0, nullptr) < 0 ||
      swr_init(swr) < 0) {
    swr_free(&swr);
    error = "can't resample its audio";
    return false;
  }
  resampler.reset(swr);
  fifo.reset(av_audio_fifo_alloc(encoder->sample_fmt, encoder->ch_layout.nb_channels, 4096));
  return true;
}

bool AudioCarry::encodeFifo(AVFormatContext* output, bool flush, std::string& error) {
  const int frameSize = encoder->frame_size > 0 ? encoder->frame_size : 1024;
  while (av_audio_fifo_size(fifo.get()) >= frameSize || (flush && av_audio_fifo_size(fifo.get()) > 0)) {
    FramePtr f(av_frame_alloc());
    f->nb_samples = std::min(frameSize, av_audio_fifo_size(fifo.get()));
    av_channel_layout_copy(&f->ch_layout, &encoder->ch_layout);
    f->format = encoder->sample_fmt;
    f->sample_rate = encoder->sample_rate;
    if (av_frame_get_buffer(f.get(), 0) < 0) {
      error = "not enough memory for the audio";
      return false;
    }
    av_audio_fifo_read(fifo.get(), reinterpret_cast<void**>(f->data), f->nb_samples);
    f->pts = samplesWritten;
    samplesWritten += f->nb_samples;
    if (avcodec_send_frame(encoder.get(), f.get()) < 0) {
      error = "can't encode the audio";
      return false;
    }
    while (avcodec_receive_packet(encoder.get(), packet.get()) == 0) {
      av_packet_rescale_ts(packet.get(), encoder->time_base, out->time_base);
      packet->stream_index = out->index;
      if (int e = av_interleaved_write_frame(output, packet.get()); e < 0) {
        error = "can't write the audio (" + avError(e) + ")";
        return false;
      }
    }
  }
  if (flush) {
    avcodec_send_frame(encoder.get(), nullptr);
    while (avcodec_receive_packet(encoder.get(), packet.get()) == 0) {
      av_packet_rescale_ts(packet.get(), encoder->time_base, out->time_base);
      packet->stream_index = out->index;
      av_interleaved_write_frame(output, packet.get());
    }
  }
  return true;
}

bool AudioCarry::carry(AVFormatContext* output, double seconds, std::string& error) {
  if (!input || ended) return true;
  const AVStream* in = input->streams[source];
  while (carriedUntil <= seconds) {
    const int read = av_read_frame(input.get(), packet.get());
    if (read < 0) {
      ended = true;
      if (transcode) {
        avcodec_send_packet(decoder.get(), nullptr);
        // The decoder's last samples, through the resampler, then the resampler's own.
        while (avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
          resample(frame.get());
          av_frame_unref(frame.get());
        }
        resample(nullptr);
        return encodeFifo(output, true, error);
      }
      return true;
    }
    if (packet->stream_index != source) {
      av_packet_unref(packet.get());
      continue;
    }
    if (packet->pts != AV_NOPTS_VALUE) {
      carriedUntil = double(packet->pts - startPts) * av_q2d(in->time_base);
      if (packet->pts < startPts) {  // sound from before the first picture
        av_packet_unref(packet.get());
        continue;
      }
    }
    if (!transcode) {
      if (packet->pts != AV_NOPTS_VALUE) packet->pts -= startPts;
      if (packet->dts != AV_NOPTS_VALUE) packet->dts -= startPts;
      av_packet_rescale_ts(packet.get(), in->time_base, out->time_base);
      packet->stream_index = out->index;
      packet->pos = -1;
      if (int e = av_interleaved_write_frame(output, packet.get()); e < 0) {
        error = "can't write the audio (" + avError(e) + ")";
        return false;
      }
      continue;
    }
    if (avcodec_send_packet(decoder.get(), packet.get()) < 0) {
      av_packet_unref(packet.get());
      continue;  // a damaged audio packet is skipped
    }
    av_packet_unref(packet.get());
    while (avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
      const bool ok = resample(frame.get());
      av_frame_unref(frame.get());
      if (!ok) {
        error = "not enough memory for the audio";
        return false;
      }
    }
    if (!encodeFifo(output, false, error)) return false;
  }
  return true;
}

struct VideoWriter::State {
  AVFormatContext* output = nullptr;
  CodecPtr encoder;
  AVStream* stream = nullptr;
  SwsPtr sws;
  FramePtr frame{av_frame_alloc()};
  PacketPtr packet{av_packet_alloc()};
  AudioCarry audio;
  VideoSettings settings;
  std::map<int64_t, int64_t> durations;  // by pts, for the packets the encoder gives back
  // MP4 and MOV measure a track by decode times: the last packet in decode order, held back until
  // the end, is made to last until the end of the last picture shown, or a stream of varying frame
  // times with reordered frames would come out short.
  bool measuredByDecodeTime = false;
  PacketPtr held{av_packet_alloc()};
  bool holding = false;
  int64_t firstDts = AV_NOPTS_VALUE, firstPts = AV_NOPTS_VALUE, end = 0;  // in the stream's time base
  bool headerWritten = false;
  int32_t sourceWidth = 0, sourceHeight = 0;

  ~State() {
    if (output) {
      if (output->pb) avio_closep(&output->pb);
      avformat_free_context(output);
    }
  }
  bool drain(std::string& error);
  bool writeHeld(std::string& error);
};

VideoWriter::VideoWriter() : s_(std::make_unique<State>()) {}
VideoWriter::~VideoWriter() = default;

int64_t VideoWriter::audioBitRate() const {
  if (!s_->audio.out) return 0;
  const int64_t rate = s_->audio.out->codecpar->bit_rate;
  return rate > 0 ? rate : 128000;
}

bool VideoWriter::open(const std::string& path, const VideoSettings& settings, std::string& error) {
  State& s = *s_;
  s.settings = settings;
  s.settings.width = settings.lossless ? settings.width : settings.width & ~1;
  s.settings.height = settings.lossless ? settings.height : settings.height & ~1;
  if (s.settings.width < 2 || s.settings.height < 2) {
    error = "the frames are too small for a video";
    return false;
  }
  const char* container = settings.lossless ? "nut" : nullptr;
  if (int e = avformat_alloc_output_context2(&s.output, nullptr, container, path.c_str()); e < 0 || !s.output) {
    error = "can't make a video of that name (" + avError(e) + ")";
    return false;
  }
  const AVCodec* codec = settings.lossless ? avcodec_find_encoder(AV_CODEC_ID_FFV1)
                                           : avcodec_find_encoder_by_name("libx264");
  if (!codec && !settings.lossless) codec = avcodec_find_encoder(AV_CODEC_ID_H264);
  if (!codec) {
    error = "this FFmpeg has no H.264 encoder";
    return false;
  }
  s.encoder.reset(avcodec_alloc_context3(codec));
  AVCodecContext* c = s.encoder.get();
  c->width = s.settings.width;
  c->height = s.settings.height;
  c->time_base = {settings.timeBase.num, settings.timeBase.den};
  if (settings.frameRate.num > 0) c->framerate = {settings.frameRate.num, settings.frameRate.den};
  c->sample_aspect_ratio = {1, 1};
  c->thread_count = 0;
  AVDictionary* options = nullptr;
  if (settings.lossless) {
    c->pix_fmt = AV_PIX_FMT_0RGB32;
    c->level = 3;
  } else {
    c->pix_fmt = AV_PIX_FMT_YUV420P;
    // BT.601 limited range, as swscale converts by default; said in the stream so players agree.
    c->colorspace = AVCOL_SPC_SMPTE170M;
    c->color_primaries = AVCOL_PRI_SMPTE170M;
    c->color_trc = AVCOL_TRC_SMPTE170M;
    c->color_range = AVCOL_RANGE_MPEG;
    av_dict_set(&options, "preset", "medium", 0);
    if (settings.bitRate > 0) {
      c->bit_rate = settings.bitRate;
      c->rc_max_rate = settings.bitRate;
      c->rc_buffer_size = int(std::min<int64_t>(INT32_MAX, settings.bitRate));
    } else {
      av_dict_set(&options, "crf", "18", 0);
    }
  }
  if (s.output->oformat->flags & AVFMT_GLOBALHEADER) c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  const int opened = avcodec_open2(c, codec, &options);
  av_dict_free(&options);
  if (opened < 0) {
    error = "can't start the video encoder (" + avError(opened) + ")";
    return false;
  }
  s.stream = avformat_new_stream(s.output, nullptr);
  if (!s.stream || avcodec_parameters_from_context(s.stream->codecpar, c) < 0) {
    error = "not enough memory for the video";
    return false;
  }
  s.stream->time_base = c->time_base;
  s.stream->avg_frame_rate = c->framerate;
  s.stream->r_frame_rate = c->framerate;
  if (!settings.audioFrom.empty() && !s.audio.open(settings.audioFrom, settings.audioStart, s.output, error))
    return false;

  if (int e = avio_open(&s.output->pb, path.c_str(), AVIO_FLAG_WRITE); e < 0) {
    error = "can't write it (" + avError(e) + ")";
    return false;
  }
  AVDictionary* muxing = nullptr;
  if (!settings.lossless) av_dict_set(&muxing, "movflags", "+faststart", 0);
  const int header = avformat_write_header(s.output, &muxing);
  av_dict_free(&muxing);
  if (header < 0) {
    error = "can't write it (" + avError(header) + ")";
    return false;
  }
  s.headerWritten = true;
  const std::string muxer = s.output->oformat->name;
  s.measuredByDecodeTime = muxer == "mp4" || muxer == "mov" || muxer == "ipod";
  s.frame->format = c->pix_fmt;
  s.frame->width = c->width;
  s.frame->height = c->height;
  if (av_frame_get_buffer(s.frame.get(), 0) < 0) {
    error = "not enough memory for a frame";
    return false;
  }
  return true;
}

bool VideoWriter::State::drain(std::string& error) {
  for (;;) {
    const int got = avcodec_receive_packet(encoder.get(), packet.get());
    if (got == AVERROR(EAGAIN) || got == AVERROR_EOF) return true;
    if (got < 0) {
      error = "the video encoder failed (" + avError(got) + ")";
      return false;
    }
    // Each picture lasts as long as its frame did, the last one included (the encoder doesn't know).
    if (auto d = durations.find(packet->pts); d != durations.end()) {
      packet->duration = d->second;
      durations.erase(d);
    }
    // The audio up to this picture's time goes first, so the two stay interleaved.
    const double until = double(packet->dts == AV_NOPTS_VALUE ? packet->pts : packet->dts) * av_q2d(encoder->time_base);
    if (!audio.carry(output, until, error)) return false;
    av_packet_rescale_ts(packet.get(), encoder->time_base, stream->time_base);
    packet->stream_index = stream->index;
    if (firstDts == AV_NOPTS_VALUE) firstDts = packet->dts;
    firstPts = firstPts == AV_NOPTS_VALUE ? packet->pts : std::min(firstPts, packet->pts);
    end = std::max(end, packet->pts + packet->duration);
    if (measuredByDecodeTime) {
      if (holding && !writeHeld(error)) return false;
      av_packet_move_ref(held.get(), packet.get());
      holding = true;
      continue;
    }
    if (int e = av_interleaved_write_frame(output, packet.get()); e < 0) {
      error = "can't write it (" + avError(e) + ")";
      return false;
    }
  }
}

bool VideoWriter::State::writeHeld(std::string& error) {
  holding = false;
  if (int e = av_interleaved_write_frame(output, held.get()); e < 0) {
    error = "can't write it (" + avError(e) + ")";
    return false;
  }
  return true;
}

bool VideoWriter::write(const CGImageRef& picture, int64_t pts, int64_t duration, std::string& error) {
  State& s = *s_;
  if (!s.headerWritten || !picture) {
    error = "no video to write to";
    return false;
  }
  const int32_t w = picture->width(), h = picture->height();
  // A picture one pixel wider or higher than the video (an odd size made even) loses its last column
  // or row; any other size is scaled.
  const bool crop = (w == s.settings.width || w == s.settings.width + 1) && (h == s.settings.height || h == s.settings.height + 1);
  const int32_t sw = crop ? s.settings.width : w, sh = crop ? s.settings.height : h;
  s.sws.reset(sws_getCachedContext(s.sws.release(), sw, sh, AV_PIX_FMT_RGBA, s.settings.width, s.settings.height,
                                   AVPixelFormat(s.frame->format), SWS_AREA | SWS_ACCURATE_RND, nullptr, nullptr,
                                   nullptr));
  if (!s.sws || av_frame_make_writable(s.frame.get()) < 0) {
    error = "can't convert the frame";
    return false;
  }
  const std::vector<uint8_t> rgba = rgbaOf(picture);
  const uint8_t* src[4] = {rgba.data(), nullptr, nullptr, nullptr};
  const int srcStride[4] = {w * 4, 0, 0, 0};
  sws_scale(s.sws.get(), src, srcStride, 0, sh, s.frame->data, s.frame->linesize);
  s.frame->pts = pts;
  s.durations[pts] = duration;
  if (int e = avcodec_send_frame(s.encoder.get(), s.frame.get()); e < 0) {
    error = "the video encoder failed (" + avError(e) + ")";
    return false;
  }
  return s.drain(error);
}

bool VideoWriter::finish(std::string& error) {
  State& s = *s_;
  if (!s.headerWritten) {
    error = "no video to write to";
    return false;
  }
  avcodec_send_frame(s.encoder.get(), nullptr);
  if (!s.drain(error)) return false;
  if (s.holding) {
    s.held->duration = std::max(s.held->duration, (s.end - s.firstPts) - (s.held->dts - s.firstDts));
    if (!s.writeHeld(error)) return false;
  }
  if (!s.audio.carry(s.output, INFINITY, error)) return false;
  if (int e = av_write_trailer(s.output); e < 0) {
    error = "can't write it (" + avError(e) + ")";
    return false;
  }
  if (int e = avio_closep(&s.output->pb); e < 0) {
    error = "can't write it (" + avError(e) + ")";
    return false;
  }
  return true;
}

}  // namespace zorvex::native
