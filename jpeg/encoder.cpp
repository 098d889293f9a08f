// The encoding driver: flags, converter choice, markers and the two passes.
//
// Every frame gets Huffman tables built for the image itself. The first pass
// only counts symbols; by default it looks at every tenth MCU column and then
// adds one to every symbol a baseline block can produce, so that the blocks it
// skipped still find a code. The second pass converts, transforms and codes
// every block. Samples live in buffers of one MCU row, so memory grows with
// the width only, and nothing is allocated per block. Progressive frames
// (0x400) are the exception: their scans revisit every block, so they keep
// the whole image's coefficients.
#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>

#include "jpeg/color_converter.h"
#include "jpeg/dct.h"
#include "jpeg/huffman.h"
#include "jpeg/progressive.h"
#include "jpeg/tables.h"
#include "jpeg/vector.h"
#include "jpeg/zjpeg.h"

namespace ZJPEG {

namespace {

using Desc = EncoderDescription;

constexpr uint8_t kSOI = 0xD8;
constexpr uint8_t kEOI = 0xD9;
constexpr uint8_t kAPP14 = 0xEE;
constexpr uint8_t kDQT = 0xDB;
constexpr uint8_t kDRI = 0xDD;
constexpr uint8_t kSOF0 = 0xC0;
constexpr uint8_t kSOF1 = 0xC1;
constexpr uint8_t kSOF2 = 0xC2;
constexpr uint8_t kDHT = 0xC4;
constexpr uint8_t kSOS = 0xDA;
constexpr uint8_t kTransformNone = 0;  // APP14 colour transform byte
constexpr uint8_t kTransformYCbCr = 1;
constexpr unsigned kSamplingPercent = 10;
constexpr int kMaxDcCategory = 11;  // DC differences of 8-bit samples
constexpr int kMaxAcCategory = 10;  // AC coefficients of 8-bit samples
constexpr size_t kSpareSamples = 32;

struct ScanComponent {
  uint8_t component = 0;
  uint8_t dcTable = 0;
  uint8_t acTable = 0;
  int16_t predictor = 0;
};

class Engine {
 public:
  Engine(RowMemoryRequester* rows, uint16_t width, uint16_t height, JPEGOutputStream* out,
         AppDataCallback* appData, bool vector)
      : rows_(rows),
        width_(width),
        height_(height),
        out_(out),
        appData_(appData),
        bits_(out, vector),
        vector_(vector) {}

  uint32_t Setup(const Desc& desc);  // kEncodeDone or why not
  void Encode(int tableMethod);

 private:
  void DumpAppData();
  void DumpAPPE(uint8_t transform);
  void DumpDQT(int precision);
  void DumpSOF(uint8_t code, uint8_t precision);
  void DumpDHT();
  void PutHuffmanTable(const FrameHuffman& t, uint8_t tableClass);
  void DumpSOS();

  void SetScan(bool sharedChromaTables);
  void CommonEncodeBaseline(unsigned percent);  // percent 0: count every block
  bool Pass(bool statistics, unsigned mcuStride, bool convert);
  void EncodeProgressive();
  void GenerateHuffmanTables();
  void Transform(int16_t* block, const QuantSlot& slot) {
    if (vector_) {
      DCTIntegerVector(block, slot);
    } else {
      DCTInteger(block, slot, work_);
    }
  }

  RowMemoryRequester* rows_;
  uint16_t width_, height_;
  JPEGOutputStream* out_;
  AppDataCallback* appData_;
  BitPacker bits_;
  bool vector_;

  uint32_t flags_ = 0;
  int components_ = 0;
  uint8_t h_[4] = {}, v_[4] = {}, tq_[4] = {};
  uint8_t hMax_ = 1, vMax_ = 1;
  uint32_t mcusAcross_ = 0, mcusDown_ = 0;
  int tables_ = 0;
  uint16_t qtable_[4][64] = {};
  QuantSlot quant_[4];
  FrameHuffman dc_[4], ac_[4];
  int scanComponents_ = 0;
  ScanComponent scan_[4];
  std::unique_ptr<ColorConverter> converter_;
  std::unique_ptr<int16_t[]> buffers_[4];
  int16_t* bufferPtrs_[4] = {};
  // The blocks of one MCU row a pass counts or codes, in scan order.
  std::unique_ptr<CodedBlock[]> coded_;
  // Progressive frames keep every quantised block for the later scans.
  std::unique_ptr<int16_t[]> coefficients_[4];
  CoefficientPlane planes_[4];
  int32_t work_[64] = {};
};

template <typename T, typename... Args>
std::unique_ptr<ColorConverter> Make(Args... args) {
  return std::unique_ptr<ColorConverter>(new (std::nothrow) T(args...));
}

// The converter the flags name, in the order the flag bits rank; null when
// they name none (no colour bit, or neither planar nor interleaved rows).
std::unique_ptr<ColorConverter> MakeConverter(uint32_t flags, bool& named) {
  const bool forward = (flags & Desc::kDescConvA) != 0;
  const bool planar = (flags & Desc::kDescPlanar) != 0;
  const bool interleaved = (flags & Desc::kDescInterleaved) != 0;
  named = true;
  if (flags & Desc::kDescGrey) return Make<ColorConverterGrey>();
  if (flags & (Desc::kDescRGB | Desc::kDescRGBAlt)) {
    const bool extraByte = !(flags & Desc::kDescRGB);
    if (planar) return Make<ColorConverterRGB>(extraByte);
    if (interleaved) return Make<ColorConverterRGBInterleave>(forward, extraByte);
  } else if (flags & Desc::kDescCMYK) {
    if (planar) return Make<ColorConverterCMYK>();
    if (interleaved) return Make<ColorConverterCMYKInterleave>(forward);
  }
  named = false;
  return nullptr;
}

uint32_t Engine::Setup(const Desc& desc) {
  flags_ = desc.flags;
  if (!(flags_ & (Desc::kDescConvA | Desc::kDescConvB))) flags_ |= Desc::kDescConvA;
  if (flags_ & Desc::kDescProgressive) {
    flags_ &= ~Desc::kDescSampledStats;
    flags_ |= Desc::kDescFullStats;
  }
  if (!(flags_ & (Desc::kDescSampledStats | Desc::kDescFullStats)))
    flags_ |= Desc::kDescSampledStats;

  // 0x800 counts symbols of samples never converted, so the tables would
  // lack the image's codes; an empty image has no scan to write.
  if ((flags_ & Desc::kDescNoColorConvert) || width_ == 0 || height_ == 0)
    return JPEGEncoder::kEncodeRefused;
  bool named = false;
  converter_ = MakeConverter(flags_, named);
  if (!named) return JPEGEncoder::kEncodeRefused;
  if (!converter_) return JPEGEncoder::kEncodeNoMemory;
  // Components the converter does not fill would be coded flat.
  if (desc.componentCount != converter_->Channels()) return JPEGEncoder::kEncodeRefused;

  // The description comes from the caller: keep its numbers inside the
  // ranges the frame can express.
  tables_ = std::clamp<int>(desc.tableCount, 1, 4);
  components_ = desc.componentCount;
  for (int t = 0; t < tables_; ++t) std::copy_n(desc.quantTables[t], 64, qtable_[t]);
  // A lone component is coded block by block in raster order whatever its
  // sampling factors say, so it is kept at 1 x 1 to match.
  const int maxFactor = components_ == 1 ? 1 : 4;
  for (int c = 0; c < components_; ++c) {
    h_[c] = static_cast<uint8_t>(std::clamp<int>(desc.components[c].h, 1, maxFactor));
    v_[c] = static_cast<uint8_t>(std::clamp<int>(desc.components[c].v, 1, maxFactor));
    tq_[c] = static_cast<uint8_t>(std::min<int>(desc.components[c].tq, tables_ - 1));
    hMax_ = std::max(hMax_, h_[c]);
    vMax_ = std::max(vMax_, v_[c]);
  }
  mcusAcross_ = (uint32_t{width_} + 8u * hMax_ - 1) / (8u * hMax_);
  mcusDown_ = (uint32_t{height_} + 8u * vMax_ - 1) / (8u * vMax_);
  converter_->SetGeometry(width_, height_, mcusAcross_, components_, h_, v_);
  converter_->SetVectorPath(vector_);

  // One MCU row per component, zeroed so that unconverted samples are defined.
  for (int c = 0; c < components_; ++c) {
    const size_t samples = size_t{mcusAcross_} * h_[c] * v_[c] * 64 + kSpareSamples;
    buffers_[c].reset(new (std::nothrow) int16_t[samples]());
    if (!buffers_[c]) return JPEGEncoder::kEncodeNoMemory;
    bufferPtrs_[c] = buffers_[c].get();
  }
  if (!(flags_ & Desc::kDescProgressive)) {
    size_t blocksPerMcu = 0;
    for (int c = 0; c < components_; ++c) blocksPerMcu += size_t{h_[c]} * v_[c];
    coded_.reset(new (std::nothrow) CodedBlock[size_t{mcusAcross_} * blocksPerMcu]);
    if (!coded_) return JPEGEncoder::kEncodeNoMemory;
  } else {
    for (int c = 0; c < components_; ++c) {
      CoefficientPlane& p = planes_[c];
      p.h = h_[c];
      p.v = v_[c];
      p.blocksAcross = mcusAcross_ * h_[c];
      p.blocksDown = mcusDown_ * v_[c];
      // The component's own size is the image's scaled by H/Hmax and V/Vmax.
      const uint32_t columns = (uint32_t{width_} * h_[c] + hMax_ - 1) / hMax_;
      const uint32_t rows = (uint32_t{height_} * v_[c] + vMax_ - 1) / vMax_;
      p.usedAcross = (columns + 7) / 8;
      p.usedDown = (rows + 7) / 8;
      coefficients_[c].reset(new (std::nothrow)
                                 int16_t[size_t{p.blocksAcross} * p.blocksDown * 64]());
      if (!coefficients_[c]) return JPEGEncoder::kEncodeNoMemory;
      p.blocks = coefficients_[c].get();
    }
  }
  return JPEGEncoder::kEncodeDone;
}

void Engine::Encode(int tableMethod) {
  out_->PutToken(kSOI);
  DumpAppData();
  // Four components are stored as given, not inverted, without transform.
  DumpAPPE(components_ == 4 ? kTransformNone : kTransformYCbCr);
  DumpDQT(tableMethod == 0 || tableMethod == 1 ? 1 : 0);  // 1: 16-bit entries
  // Restart interval 0, written inline: the frame has no restart markers.
  out_->PutToken(kDRI);
  out_->Put2Bytes(4);
  out_->Put2Bytes(0);

  for (int t = 0; t < tables_; ++t) PrepareQuantSlot(quant_[t], qtable_[t]);

  const bool fullStats =
      (flags_ & Desc::kDescNoColorConvert) || !(flags_ & Desc::kDescSampledStats);
  if (flags_ & Desc::kDescProgressive) {
    DumpSOF(kSOF2, 8);
    EncodeProgressive();
  } else if (flags_ & Desc::kDescBaseline) {
    DumpSOF(kSOF0, 8);
    SetScan(true);
    CommonEncodeBaseline(fullStats ? 0 : kSamplingPercent);
  } else {
    DumpSOF(kSOF1, 8);
    SetScan(false);
    CommonEncodeBaseline(0);
  }

  bits_.Flush();
  out_->PutToken(kEOI);
}

void Engine::SetScan(bool sharedChromaTables) {
  scanComponents_ = components_;
  for (int i = 0; i < components_; ++i) {
    const uint8_t table = sharedChromaTables ? (i == 0 ? 0 : 1) : static_cast<uint8_t>(i);
    scan_[i] = {static_cast<uint8_t>(i), table, table, 0};
  }
}

void Engine::CommonEncodeBaseline(unsigned percent) {
  // The sampled pass converts and counts the MCUs that start every 8·s pixel
  // columns, s = (percent + 99) / percent (10 for 10 %: every 80 pixels, so
  // every 10th MCU at full chroma and every 5th at 4:2:0).
  const unsigned s = percent ? (percent + 99) / percent : 1;
  const unsigned stride = std::max(1u, s / hMax_);
  const bool convert = !(flags_ & Desc::kDescNoColorConvert);
  for (int i = 0; i < scanComponents_; ++i) scan_[i].predictor = 0;
  if (!Pass(true, stride, convert)) return;

  if (percent) {
    for (int t = 0; t < 4; ++t) {
      for (int s = 0; s <= kMaxDcCategory; ++s) ++dc_[t].frequency[s];
      for (int run = 0; run < 16; ++run) {
        for (int size = 1; size <= kMaxAcCategory; ++size) ++ac_[t].frequency[(run << 4) | size];
      }
      ++ac_[t].frequency[0x00];  // EOB
      ++ac_[t].frequency[0xF0];  // ZRL
    }
  }
  for (int i = 0; i < scanComponents_; ++i) {
    dc_[scan_[i].dcTable].inUse = 1;
    ac_[scan_[i].acTable].inUse = 1;
  }
  GenerateHuffmanTables();
  DumpDHT();
  DumpSOS();

  for (int i = 0; i < scanComponents_; ++i) scan_[i].predictor = 0;
  Pass(false, 1, true);
}

bool Engine::Pass(bool statistics, unsigned mcuStride, bool convert) {
  const unsigned rowsPerMcu = 8u * vMax_;
  for (uint32_t y = 0; y < height_; y += rowsPerMcu) {
    if (out_->failed) return false;
    rows_->firstRowWanted = static_cast<uint16_t>(y);
    rows_->rowsWanted = static_cast<uint16_t>(rowsPerMcu);
    if (!rows_->Request() || rows_->red == nullptr) return false;
    if (convert) converter_->ColorConvert(*rows_, y, 0, mcuStride, bufferPtrs_);
    // A whole MCU row is transformed in one vector call, then coded.
    const bool wholeRow = vector_ && mcuStride == 1;
    if (wholeRow) {
      for (int c = 0; c < components_; ++c) {
        DCTIntegerVectorBlocks(bufferPtrs_[c], size_t{mcusAcross_} * h_[c] * v_[c], quant_[tq_[c]]);
      }
    }
    size_t coded = 0;
    for (uint32_t mcu = 0; mcu < mcusAcross_; mcu += mcuStride) {
      for (int i = 0; i < scanComponents_; ++i) {
        ScanComponent& sc = scan_[i];
        const int c = sc.component;
        const uint32_t blocksAcross = mcusAcross_ * h_[c];
        for (unsigned by = 0; by < v_[c]; ++by) {
          for (unsigned bx = 0; bx < h_[c]; ++bx) {
            int16_t* block =
                bufferPtrs_[c] + (size_t{by} * blocksAcross + size_t{mcu} * h_[c] + bx) * 64;
            if (!wholeRow) Transform(block, quant_[tq_[c]]);
            coded_[coded++] = {block, &sc.predictor, &dc_[sc.dcTable], &ac_[sc.acTable]};
          }
        }
      }
    }
    if (statistics) {
      CountBlocks(coded_.get(), coded, vector_);
    } else {
      bits_.OutputBlocks(coded_.get(), coded);
    }
  }
  return true;
}

// Converts and transforms every block into the coefficient planes, then
// writes the scans. A row source that fails leaves the rest of the planes
// zero; the scans still follow, so the file stays whole.
void Engine::EncodeProgressive() {
  const unsigned rowsPerMcu = 8u * vMax_;
  for (uint32_t y = 0, my = 0; y < height_; y += rowsPerMcu, ++my) {
    rows_->firstRowWanted = static_cast<uint16_t>(y);
    rows_->rowsWanted = static_cast<uint16_t>(rowsPerMcu);
    if (!rows_->Request() || rows_->red == nullptr) break;
    converter_->ColorConvert(*rows_, y, 0, 1, bufferPtrs_);
    for (int c = 0; c < components_; ++c) {
      const size_t blocks = size_t{mcusAcross_} * h_[c] * v_[c];  // one MCU row
      int16_t* store = coefficients_[c].get() + size_t{my} * blocks * 64;
      for (size_t b = 0; b < blocks; ++b) {
        int16_t* block = bufferPtrs_[c] + b * 64;
        Transform(block, quant_[tq_[c]]);
        std::copy_n(block, 64, store + b * 64);
      }
    }
  }
  EncodeProgressiveScans(out_, planes_, components_, mcusAcross_, mcusDown_);
}

void Engine::GenerateHuffmanTables() {
  for (auto& t : dc_) {
    if (t.inUse) t.Generate();
  }
  for (auto& t : ac_) {
    if (t.inUse) t.Generate();
  }
}

void Engine::DumpAppData() {
  if (appData_ == nullptr) return;
  if (appData_->HasRawPrefix() && appData_->rawPrefix)
    out_->PutData(const_cast<uint8_t*>(appData_->rawPrefix), appData_->rawPrefixLength);
  while (appData_->NextSegment()) {
    out_->PutToken(static_cast<uint8_t>((appData_->appIndex - 32) & 0xFF));  // 0xE0 + n
    out_->Put2Bytes(static_cast<uint16_t>(appData_->segmentLength + 2));
    if (appData_->segmentData)
      out_->PutData(const_cast<uint8_t*>(appData_->segmentData), appData_->segmentLength);
  }
}

void Engine::DumpAPPE(uint8_t transform) {
  static constexpr uint8_t kBody[] = {'K', 'e', 'l', 't', 'o', 0x00, 100, 0xC0, 0x00, 0x00, 0x00};
  out_->PutToken(kAPP14);
  out_->Put2Bytes(14);  // 2 + 11 + transform
  for (uint8_t b : kBody) out_->PutByte(b);
  out_->PutByte(transform);
}

void Engine::DumpDQT(int precision) {
  out_->PutToken(kDQT);
  out_->Put2Bytes(static_cast<uint16_t>(2 + tables_ * (precision ? 129 : 65)));
  for (int t = 0; t < tables_; ++t) {
    out_->PutByte(static_cast<uint8_t>((precision << 4) | t));
    for (int k = 0; k < 64; ++k) {
      const uint16_t q = qtable_[t][kZigzag[k]];
      if (precision) {
        out_->Put2Bytes(q);
      } else {
        out_->PutByte(static_cast<uint8_t>(q));
      }
    }
  }
}

void Engine::DumpSOF(uint8_t code, uint8_t precision) {
  out_->PutToken(code);
  out_->Put2Bytes(static_cast<uint16_t>(8 + 3 * components_));
  out_->PutByte(precision);
  out_->Put2Bytes(height_);
  out_->Put2Bytes(width_);
  out_->PutByte(static_cast<uint8_t>(components_));
  for (int c = 0; c < components_; ++c) {
    out_->PutByte(static_cast<uint8_t>(c));  // identifiers count from 0
    out_->PutByte(static_cast<uint8_t>((h_[c] << 4) | v_[c]));
    out_->PutByte(tq_[c]);
  }
}

void Engine::PutHuffmanTable(const FrameHuffman& t, uint8_t tableClass) {
  out_->PutByte(tableClass);
  for (int length = 1; length <= 16; ++length) out_->PutByte(static_cast<uint8_t>(t.bits[length]));
  for (int k = 0; k < t.last; ++k) out_->PutByte(t.values[k]);
}

void Engine::DumpDHT() {
  uint32_t length = 2;
  for (const auto* set : {dc_, ac_}) {
    for (int slot = 0; slot < 4; ++slot) {
      if (set[slot].inUse) length += 17 + set[slot].last;
    }
  }
  out_->PutToken(kDHT);
  out_->Put2Bytes(static_cast<uint16_t>(length));
  for (int slot = 0; slot < 4; ++slot) {
    if (dc_[slot].inUse) PutHuffmanTable(dc_[slot], static_cast<uint8_t>(slot));
  }
  for (int slot = 0; slot < 4; ++slot) {
    if (ac_[slot].inUse) PutHuffmanTable(ac_[slot], static_cast<uint8_t>(0x10 | slot));
  }
}

void Engine::DumpSOS() {
  out_->PutToken(kSOS);
  out_->Put2Bytes(static_cast<uint16_t>(6 + 2 * scanComponents_));
  out_->PutByte(static_cast<uint8_t>(scanComponents_));
  for (int i = 0; i < scanComponents_; ++i) {
    out_->PutByte(scan_[i].component);
    out_->PutByte(static_cast<uint8_t>((scan_[i].dcTable << 4) | scan_[i].acTable));
  }
  out_->PutByte(0);   // Ss
  out_->PutByte(63);  // Se
  out_->PutByte(0);   // Ah, Al
}

}  // namespace

JPEGEncoder::JPEGEncoder(RowMemoryRequester* rows, uint16_t width, uint16_t height)
    : rows_(rows), width_(width), height_(height), vector_(VectorPathByDefault()) {}

uint32_t JPEGEncoder::EncodeImage(JPEGOutputStream* out, const EncoderDescription& desc,
                                  AppDataCallback* appData, int /*colorMethod*/, int tableMethod) {
  if (out == nullptr || rows_ == nullptr) return kEncodeRefused;
  if (out->failed) return kEncodeWriteFailed;
  if (out->buffer == nullptr || out->capacity == 0) return kEncodeNoMemory;
  std::unique_ptr<Engine> engine(new (std::nothrow)
                                     Engine(rows_, width_, height_, out, appData, vector_));
  if (!engine) return kEncodeNoMemory;
  if (const uint32_t refused = engine->Setup(desc); refused != kEncodeDone) return refused;
  engine->Encode(tableMethod);
  if (!out->failed) return kEncodeDone;
  out->count = 0;  // nothing held after a failure reaches the sink either
  return kEncodeWriteFailed;
}

}  // namespace ZJPEG
