// Progressive scans: spectral selection and successive approximation.
//
// The scan script is the customary simple progression: the DC terms of all
// components at half precision first, then low and high luma bands and the
// chroma at reduced precision, then the refinement scans that restore the last
// bits. Components that are not luma and chroma (grey, CMYK) each get the same
// bands. Every scan is coded twice: once counting symbols, once writing them
// with tables made from the counts. The decoded coefficients equal the
// baseline frame's, so both decode to the same pixels.
#include "jpeg/progressive.h"

#include <cstddef>
#include <cstdlib>
#include <vector>

#include "jpeg/huffman.h"

namespace ZJPEG {

namespace {

constexpr uint8_t kDHT = 0xC4;
constexpr uint8_t kSOS = 0xDA;
constexpr uint8_t kZRL = 0xF0;
constexpr uint32_t kMaxEobRun = 0x7FFF;
// Correction bits held back during an end-of-band run before it is closed
// early, so that the held bits stay bounded (the customary 1000 less a block).
constexpr size_t kMaxHeldCorrections = 1000 - 64 + 1;

struct Scan {
  int count;  // components in the scan; 1 with `component`
  int component;
  int ss, se, ah, al;
};

std::vector<Scan> Script(int components) {
  std::vector<Scan> s;
  if (components == 3) {
    s = {{3, 0, 0, 0, 0, 1},  {1, 0, 1, 5, 0, 2},  {1, 2, 1, 63, 0, 1}, {1, 1, 1, 63, 0, 1},
         {1, 0, 6, 63, 0, 2}, {1, 0, 1, 63, 2, 1}, {3, 0, 0, 0, 1, 0},  {1, 2, 1, 63, 1, 0},
         {1, 1, 1, 63, 1, 0}, {1, 0, 1, 63, 1, 0}};
    return s;
  }
  s.push_back({components, 0, 0, 0, 0, 1});
  for (auto band : {Scan{1, 0, 1, 5, 0, 2}, {1, 0, 6, 63, 0, 2}, {1, 0, 1, 63, 2, 1}}) {
    for (int c = 0; c < components; ++c) s.push_back({1, c, band.ss, band.se, band.ah, band.al});
  }
  s.push_back({components, 0, 0, 0, 1, 0});
  for (int c = 0; c < components; ++c) s.push_back({1, c, 1, 63, 1, 0});
  return s;
}

// Codes one scan, or only counts its symbols when `counting`.
class ScanCoder {
 public:
  ScanCoder(BitPacker& bits, FrameHuffman* tables, bool counting)
      : bits_(bits), tables_(tables), counting_(counting) {}

  void DcFirst(const int16_t* block, int table, int16_t& predictor, int al) {
    const int32_t value = block[0] >> al;  // arithmetic shift, as the decoder scales back
    const int32_t diff = value - predictor;
    predictor = static_cast<int16_t>(value);
    const uint32_t size = Category(static_cast<uint32_t>(std::abs(diff)));
    Symbol(table, size);
    Bits(static_cast<uint32_t>(diff < 0 ? diff - 1 : diff), size);
  }

  void DcRefine(const int16_t* block, int al) { Bits(static_cast<uint32_t>(block[0] >> al), 1); }

  void AcFirst(const int16_t* block, int ss, int se, int al) {
    int run = 0;
    for (int k = ss; k <= se; ++k) {
      int32_t v = block[k];
      const int32_t magnitude = std::abs(v) >> al;
      if (magnitude == 0) {
        ++run;
        continue;
      }
      v = v < 0 ? ~magnitude : magnitude;
      CloseEobRun();
      for (; run > 15; run -= 16) Symbol(0, kZRL);
      const uint32_t size = Category(static_cast<uint32_t>(magnitude));
      Symbol(0, static_cast<uint32_t>(run << 4) | size);
      Bits(static_cast<uint32_t>(v), size);
      run = 0;
    }
    if (run > 0 && ++eobRun_ == kMaxEobRun) CloseEobRun();
  }

  void AcRefine(const int16_t* block, int ss, int se, int al) {
    int32_t magnitude[64];
    int lastNewlyOne = 0;  // the last coefficient that becomes nonzero here
    for (int k = ss; k <= se; ++k) {
      magnitude[k] = std::abs(block[k]) >> al;
      if (magnitude[k] == 1) lastNewlyOne = k;
    }
    int run = 0;
    for (int k = ss; k <= se; ++k) {
      if (magnitude[k] == 0) {
        ++run;
        continue;
      }
      while (run > 15 && k <= lastNewlyOne) {
        CloseEobRun();
        Symbol(0, kZRL);
        run -= 16;
        EmitBlockCorrections();
      }
      if (magnitude[k] > 1) {  // nonzero before: one correction bit
        held_.push_back(static_cast<uint8_t>(magnitude[k] & 1));
        continue;
      }
      CloseEobRun();
      Symbol(0, static_cast<uint32_t>(run << 4) | 1);
      Bits(block[k] < 0 ? 0 : 1, 1);
      EmitBlockCorrections();
      run = 0;
    }
    if (run > 0 || held_.size() > runCorrections_) {
      runCorrections_ = held_.size();  // the block joins the run with its bits
      if (++eobRun_ == kMaxEobRun || held_.size() > kMaxHeldCorrections) CloseEobRun();
    }
  }

  // Ends the scan: a pending end-of-band run and its corrections.
  void Finish() { CloseEobRun(); }

 private:
  void Symbol(int table, uint32_t symbol) {
    if (counting_) {
      ++tables_[table].frequency[symbol];
    } else {
      bits_.Put(tables_[table].codeBySymbol[symbol], tables_[table].lengthBySymbol[symbol]);
    }
  }
  void Bits(uint32_t value, uint32_t count) {
    if (!counting_ && count) bits_.Put(value & ((1u << count) - 1), count);
  }
  // Writes the current block's correction bits (those after the run's).
  void EmitBlockCorrections() {
    for (size_t i = runCorrections_; i < held_.size(); ++i) Bits(held_[i], 1);
    held_.resize(runCorrections_);
  }
  void CloseEobRun() {
    if (eobRun_ == 0) return;
    uint32_t size = Category(eobRun_) - 1;  // EOBn: 2^n blocks and n more bits
    Symbol(0, size << 4);
    Bits(eobRun_, size);
    eobRun_ = 0;
    for (size_t i = 0; i < runCorrections_; ++i) Bits(held_[i], 1);
    held_.erase(held_.begin(), held_.begin() + std::ptrdiff_t(runCorrections_));
    runCorrections_ = 0;
  }

  BitPacker& bits_;
  FrameHuffman* tables_;
  bool counting_;
  uint32_t eobRun_ = 0;
  std::vector<uint8_t> held_;  // correction bits of the run, then of the block
  size_t runCorrections_ = 0;  // how many of them belong to the run
};

void PutTables(JPEGOutputStream* out, const FrameHuffman* tables, int count, uint8_t tableClass) {
  uint32_t length = 2;
  for (int t = 0; t < count; ++t) length += 17 + tables[t].last;
  out->PutToken(kDHT);
  out->Put2Bytes(static_cast<uint16_t>(length));
  for (int t = 0; t < count; ++t) {
    out->PutByte(static_cast<uint8_t>(tableClass | t));
    for (int l = 1; l <= 16; ++l) out->PutByte(static_cast<uint8_t>(tables[t].bits[l]));
    for (int k = 0; k < tables[t].last; ++k) out->PutByte(tables[t].values[k]);
  }
}

// Runs `code` over the scan's blocks in the order the decoder reads them:
// MCU by MCU for a scan of several components, else the component's own
// blocks row by row.
template <typename Code>
void ForEachBlock(const Scan& scan, const CoefficientPlane* planes, uint32_t mcusAcross,
                  uint32_t mcusDown, Code code) {
  if (scan.count == 1) {
    const CoefficientPlane& p = planes[scan.component];
    for (uint32_t by = 0; by < p.usedDown; ++by) {
      for (uint32_t bx = 0; bx < p.usedAcross; ++bx)
        code(0, p.blocks + (size_t{by} * p.blocksAcross + bx) * 64);
    }
    return;
  }
  for (uint32_t my = 0; my < mcusDown; ++my) {
    for (uint32_t mx = 0; mx < mcusAcross; ++mx) {
      for (int c = 0; c < scan.count; ++c) {
        const CoefficientPlane& p = planes[c];
        for (uint32_t y = 0; y < p.v; ++y) {
          for (uint32_t x = 0; x < p.h; ++x) {
            const size_t row = size_t{my} * p.v + y, column = size_t{mx} * p.h + x;
            code(c, p.blocks + (row * p.blocksAcross + column) * 64);
          }
        }
      }
    }
  }
}

}  // namespace

void EncodeProgressiveScans(JPEGOutputStream* out, const CoefficientPlane* planes, int components,
                            uint32_t mcusAcross, uint32_t mcusDown) {
  BitPacker bits(out);
  for (const Scan& scan : Script(components)) {
    if (out->failed) return;
    const bool dc = scan.ss == 0;
    const bool refine = scan.ah != 0;
    FrameHuffman tables[4];
    const int tableCount = dc ? (refine ? 0 : scan.count) : 1;
    auto run = [&](bool counting) {
      ScanCoder coder(bits, tables, counting);
      int16_t predictors[4] = {};
      ForEachBlock(scan, planes, mcusAcross, mcusDown, [&](int c, const int16_t* block) {
        if (dc && refine) {
          coder.DcRefine(block, scan.al);
        } else if (dc) {
          coder.DcFirst(block, c, predictors[c], scan.al);
        } else if (refine) {
          coder.AcRefine(block, scan.ss, scan.se, scan.al);
        } else {
          coder.AcFirst(block, scan.ss, scan.se, scan.al);
        }
      });
      coder.Finish();
    };
    if (tableCount) {
      run(true);
      for (int t = 0; t < tableCount; ++t) tables[t].Generate();
      PutTables(out, tables, tableCount, dc ? 0x00 : 0x10);
    }
    out->PutToken(kSOS);
    out->Put2Bytes(static_cast<uint16_t>(6 + 2 * scan.count));
    out->PutByte(static_cast<uint8_t>(scan.count));
    for (int i = 0; i < scan.count; ++i) {
      out->PutByte(static_cast<uint8_t>(scan.count == 1 ? scan.component : i));
      // DC scans: table i for the scan's component i; AC scans: table 0.
      out->PutByte(static_cast<uint8_t>(dc && !refine ? (i << 4) : 0));
    }
    out->PutByte(static_cast<uint8_t>(scan.ss));
    out->PutByte(static_cast<uint8_t>(scan.se));
    out->PutByte(static_cast<uint8_t>((scan.ah << 4) | scan.al));
    run(false);
    bits.Flush();
  }
}

}  // namespace ZJPEG
