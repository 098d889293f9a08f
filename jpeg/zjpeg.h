// The ZJPEG baseline encoder: what a client sees. A client fills an
// EncoderDescription, supplies rows through a RowMemoryRequester, collects the
// bytes through a JPEGOutputStream and runs one JPEGEncoder per image.
#ifndef QL_JPEG_ZJPEG_H
#define QL_JPEG_ZJPEG_H

#include <cstdint>

namespace ZJPEG {

struct EncoderDescription {
  static constexpr uint32_t kDescGrey = 0x001;
  static constexpr uint32_t kDescRGB = 0x002;
  static constexpr uint32_t kDescCMYK = 0x004;
  static constexpr uint32_t kDescPlanar = 0x008;
  static constexpr uint32_t kDescInterleaved = 0x010;
  static constexpr uint32_t kDescRGBAlt = 0x020;
  static constexpr uint32_t kDescConvA = 0x040;
  static constexpr uint32_t kDescConvB = 0x080;
  static constexpr uint32_t kDescBaseline = 0x100;
  static constexpr uint32_t kDescProgressive = 0x400;
  static constexpr uint32_t kDescNoColorConvert = 0x800;
  static constexpr uint32_t kDescSampledStats = 0x1000;
  static constexpr uint32_t kDescFullStats = 0x2000;

  struct Component {
    uint8_t h = 1, v = 1, tq = 0;
  };

  uint16_t quantTables[4][64] = {};  // natural row-major order
  uint8_t tableCount = 0;
  uint32_t flags = 0;  // set before calling a quality function
  uint8_t componentCount = 0;
  Component components[4] = {};

  void PixmereQuality(int q);  // 0 smallest file ... 12 best
  void DefaultQuality();
  void Quality0to100(int q);
};

// Row source. The encoder sets the first two fields and calls Request(), which
// points `red` at the first byte of the first requested row; rows follow
// `rowStride` bytes apart. The encoder reads through `red` only.
//
// Interleaved rows (0x010) hold pixel after pixel. Planar rows (0x008) hold
// one plane after another, each `width` bytes: R, G, B for RGB (0x002); a
// plane of ignored bytes, then R, G, B for the extra-byte variant (0x020);
// C, M, Y, K for CMYK (0x004). So a planar image is line-interleaved, and a
// row source hands over whole image rows for every layout.
class RowMemoryRequester {
 public:
  virtual int Request() = 0;  // nonzero when the rows are available
  virtual void Finalize() {}
  virtual ~RowMemoryRequester() = default;

  uint16_t firstRowWanted = 0;
  uint16_t rowsWanted = 0;
  uint32_t rowStride = 0;
  const uint8_t* red = nullptr;
  const uint8_t* green = nullptr;
  const uint8_t* blue = nullptr;
};

// Rows of `height` lines, `stride` bytes apart, starting at `pixels`.
class BufferRowMemoryRequester : public RowMemoryRequester {
 public:
  BufferRowMemoryRequester(const uint8_t* pixels, uint32_t stride, uint16_t height);
  int Request() override;

 private:
  const uint8_t* pixels_;
  uint16_t height_;
};

// Buffered byte sink. A stream built over a caller buffer takes ownership of
// it and releases it with array delete.
//
// `failed` is sticky: a sink sets it when it cannot take bytes, and the stream
// sets it when a DumpBuffer() leaves no room. From then on the writers drop
// their bytes, the encoder hands the sink nothing more and stops, and
// EncodeImage() answers kEncodeWriteFailed.
class JPEGOutputStream {
 public:
  JPEGOutputStream();
  JPEGOutputStream(void* callerBuffer, uint32_t size);
  JPEGOutputStream(const JPEGOutputStream&) = delete;
  JPEGOutputStream& operator=(const JPEGOutputStream&) = delete;
  virtual ~JPEGOutputStream();
  virtual void DumpBuffer() = 0;                    // hand `count` bytes to the sink, empty
  virtual void DumpBytes(void* p, unsigned n) = 0;  // hand bytes straight to the sink

  void Initialize();
  void PutByte(uint8_t b);
  void PutToken(uint8_t code);
  void Put2Bytes(uint16_t v);
  void PutData(uint8_t* p, unsigned n);
  void Flush();

  uint32_t capacity = 0;
  uint8_t* buffer = nullptr;
  uint32_t count = 0;
  uint32_t ownsBuffer = 0;
  uint32_t failed = 0;
};

// Application segments written after SOI.
class AppDataCallback {
 public:
  virtual ~AppDataCallback() = default;
  virtual int NextSegment() = 0;   // nonzero: the fields describe the next segment
  virtual int HasRawPrefix() = 0;  // nonzero: rawPrefix precedes the segments

  uint32_t appIndex = 0;  // APPn
  const uint8_t* segmentData = nullptr;
  uint32_t segmentLength = 0;
  const uint8_t* rawPrefix = nullptr;
  uint32_t rawPrefixLength = 0;
};

class JPEGEncoder {
 public:
  // EncodeImage() results. A refused description and a failed allocation
  // return before any byte is written.
  static constexpr uint32_t kEncodeDone = 0;
  // The description names no layout a converter serves (no colour bit, no
  // planar or interleaved bit, a component count the layout does not fill,
  // 0x800, whose statistics never see the image), or the image is empty.
  static constexpr uint32_t kEncodeRefused = 1;
  static constexpr uint32_t kEncodeNoMemory = 2;
  static constexpr uint32_t kEncodeWriteFailed = 3;  // the stream's `failed` was set

  // EncodeImage()'s `tableMethod` picks how the quantisation tables are
  // written: methods 0 and 1 with 16-bit entries, every other method with
  // 8-bit ones (the plug-in's pages use kTables8Bit). The transform and the
  // quantisation are the same either way; only the DQT segment differs.
  static constexpr int kTables16Bit = 0;
  static constexpr int kTables8Bit = 4;

  JPEGEncoder(RowMemoryRequester* rows, uint16_t width, uint16_t height);
  uint32_t EncodeImage(JPEGOutputStream* out, const EncoderDescription& desc,
                       AppDataCallback* appData, int colorMethod, int tableMethod);

  // Colour conversion, transform and quantisation on the processor's widest
  // vector unit, or in plain scalar code; the bytes are the same. The vector
  // path is the default when the processor has a vector unit and the
  // environment variable ZJPEG_SCALAR is unset, empty or "0".
  void SetVectorPath(bool vector) { vector_ = vector; }
  bool VectorPath() const { return vector_; }

 private:
  RowMemoryRequester* rows_;
  uint16_t width_;
  uint16_t height_;
  bool vector_;
};

// Builds the colour tables; answers whether encoders take the vector path by
// default.
bool InitializeJPEGEncoder();

}  // namespace ZJPEG

#endif  // QL_JPEG_ZJPEG_H
