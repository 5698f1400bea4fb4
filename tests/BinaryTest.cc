#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <fstream>
#include <random>
#include <sstream>

#include "FST.h"
#include "RandomMachine.h"
#include "TestUtil.h"

namespace {

using ::testing::KilledBySignal;

template <class Write>
std::string Bytes(Write write) {
  std::ostringstream os;
  write(os);
  std::string hex;
  char buffer[4];
  for (unsigned char c : os.str()) {
    std::snprintf(buffer, sizeof buffer, "%s%02X", hex.empty() ? "" : " ", c);
    hex += buffer;
  }
  return hex;
}

std::string ReadFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(BinaryPrimitives, ExactBytesAndRoundTrips) {
  EXPECT_EQ(Bytes([](std::ostream& os) { FSTDumpInt(os, 1); }), "00 00 00 01");
  EXPECT_EQ(Bytes([](std::ostream& os) { FSTDumpFloat(os, 1.0f); }), "3F 80 00 00");
  EXPECT_EQ(Bytes([](std::ostream& os) { FSTDumpString(os, ""); }), "00 00 00 00 00");
  EXPECT_EQ(Bytes([](std::ostream& os) { FSTDumpChars(os, nullptr); }), "FF FF FF FF");
  auto unsigned_bytes = [](unsigned v) {
    return Bytes([v](std::ostream& os) { FSTDumpCompressedUnsigned(os, v); });
  };
  EXPECT_EQ(unsigned_bytes(63), "3F");
  EXPECT_EQ(unsigned_bytes(64), "40 40");
  EXPECT_EQ(unsigned_bytes(16384), "80 40 00");
  EXPECT_EQ(unsigned_bytes((1u << 30) - 1), "FF FF FF FF");
  auto signed_bytes = [](int v) {
    return Bytes([v](std::ostream& os) { FSTDumpCompressedInt(os, v); });
  };
  EXPECT_EQ(signed_bytes(-1), "3F");
  EXPECT_EQ(signed_bytes(-33), "7F DF");
  EXPECT_EQ(signed_bytes(31), "1F");
  EXPECT_EQ(signed_bytes(32), "40 20");
  EXPECT_EQ(signed_bytes(-(1 << 29)), "E0 00 00 00");
  std::ostringstream sink;
  EXPECT_EXIT(FSTDumpCompressedUnsigned(sink, 1u << 30), KilledBySignal(SIGABRT),
              "^FATAL: FSTDumpCompressedUnsigned: 1073741824 too large\n");
  EXPECT_EXIT(FSTDumpCompressedInt(sink, -(1 << 29) - 1), KilledBySignal(SIGABRT),
              "^FATAL: FSTDumpCompressedInt: -536870913 too large\n");
  EXPECT_EXIT(FSTDumpCompressedInt(sink, 1 << 29), KilledBySignal(SIGABRT),
              "^FATAL: FSTDumpCompressedInt: 536870912 too large\n");

  // Every primitive reads back what it wrote, around each length boundary of the compressed forms.
  std::stringstream io;
  std::vector<int> values{0, 31, 32, -32, -33, 8191, 8192, -8192, -8193, 2097151, 2097152,
                          -2097152, -2097153, (1 << 29) - 1, -(1 << 29)};
  for (int v : values) {
    FSTDumpCompressedInt(io, v);
    FSTDumpCompressedUnsigned(io, unsigned(v < 0 ? -v : v));
    FSTDumpShort(io, short(v));
    FSTDumpUnsignedShort(io, static_cast<unsigned short>(v));
    FSTDumpInt(io, v);
    FSTDumpUnsignedInt(io, unsigned(v));
    FSTDumpFloat(io, float(v) / 3);
    FSTDumpDouble(io, double(v) / 3);
    FSTDumpString(io, std::string(size_t(v & 7), 'x'));
  }
  FSTDumpChars(io, nullptr);
  FSTDumpChars(io, "chars");
  for (int v : values) {
    EXPECT_EQ(FSTLoadCompressedInt(io), v);
    EXPECT_EQ(FSTLoadCompressedUnsigned(io), unsigned(v < 0 ? -v : v));
    EXPECT_EQ(FSTLoadShort(io), short(v));
    EXPECT_EQ(FSTLoadUnsignedShort(io), static_cast<unsigned short>(v));
    EXPECT_EQ(FSTLoadInt(io), v);
    EXPECT_EQ(FSTLoadUnsignedInt(io), unsigned(v));
    EXPECT_EQ(FSTLoadFloat(io), float(v) / 3);
    EXPECT_EQ(FSTLoadDouble(io), double(v) / 3);
    EXPECT_EQ(FSTLoadString(io), std::string(size_t(v & 7), 'x'));
  }
  EXPECT_EQ(FSTLoadChars(io), nullptr);
  char* chars = FSTLoadChars(io);
  EXPECT_STREQ(chars, "chars");
  delete[] chars;
}

FSTGeneric Random(std::mt19937& rng, FSTSemiringBase const* s) {
  RandomMachineOptions o;
  o.semiring = s;
  o.max_states = 7;
  o.max_arcs = 14;
  FSTGeneric m = FSTMutableCopy(RandomMachine(rng, o));
  for (int p : m->states())
    if (rng() % 3 == 0) m->set_potential(p, float(rng() % 5) * 0.5f);
  return m;
}

TEST(BinaryFormat, RoundTripsAndDamage) {
  std::mt19937 rng(5);
  for (FSTSemiringBase const* s : {FSTMinPlus, FSTMaxPlus, FSTPlusTimes, FSTPlusTimesLog})
    for (int round = 0; round < 25; ++round) {
      FSTGeneric m = Random(rng, s);
      std::stringstream io;
      m->dump_binary(io);
      FSTGeneric back = FSTLoadStream(io);
      EXPECT_EQ(back->name, "FSTBinary");
      EXPECT_EQ(back->semiring(), s);
      EXPECT_EQ(Describe(back), Describe(m));
    }
  // A label is stored as its place in the machine's own list.
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->add_arc(0, 1, FSTstring_map["x"], 0, 0);
  std::ostringstream os;
  m->dump_binary(os);
  std::string const bytes = os.str();
  EXPECT_EQ(bytes.substr(0, 18), "#FSTBinary MinPlus");
  EXPECT_EQ(bytes.substr(27, 10), std::string("\0\0\0\1\0\0\0\1x\0", 10));

  // Every truncation, and damaged counts and labels, stop with a message naming the file.
  std::string const file = WriteTempFile("damaged.bin", "");
  for (size_t n = 19; n < bytes.size(); n += 3) {
    std::ofstream(file, std::ios::binary) << bytes.substr(0, n);
    EXPECT_EXIT(FSTLoadFile(file.c_str()), KilledBySignal(SIGABRT),
                "^FATAL: FSTBinary file .*damaged.bin: truncated in ");
  }
  std::string bad_label = bytes;
  bad_label[bytes.size() - 2 * 16 - 4 - 20 + 11] = 9;  // the arc's input position
  std::ofstream(file, std::ios::binary) << bad_label;
  EXPECT_EXIT(FSTLoadFile(file.c_str()), KilledBySignal(SIGABRT),
              "arc 0 has a label outside the label lists");
  std::string nul_name = bytes;
  nul_name.replace(27, 10, std::string("\0\0\0\1\0\0\0\3x\0y\0", 12));  // "x\0y" for "x"
  std::ofstream(file, std::ios::binary) << nul_name;
  EXPECT_EXIT(FSTLoadFile(file.c_str()), KilledBySignal(SIGABRT),
              "a name in the input labels holds a NUL byte");
  std::string huge_count = bytes;
  huge_count[27] = '\x7f';  // two billion input labels
  std::ofstream(file, std::ios::binary) << huge_count;
  EXPECT_EXIT(FSTLoadFile(file.c_str()), KilledBySignal(SIGABRT),
              "(truncated in|a name in) the input labels");
}

TEST(MmapFormat, RoundTripsLayoutsAndOrders) {
  std::mt19937 rng(6);
  std::string const file = WriteTempFile("m.mmap", "");
  for (int round = 0; round < 30; ++round) {
    FSTGeneric m = Random(rng, round % 2 ? FSTMinPlus : FSTPlusTimesLog);
    FSTArcOrder order = FSTArcOrder(round % 3);
    m->dump_mmap(file.c_str(), order);  // sorts m's own arcs into that order
    FSTGeneric back = FSTLoadFile(file.c_str());
    EXPECT_EQ(back->name, "FSTMmap");
    EXPECT_EQ(Describe(back), Describe(m));

    // The 24-byte state records (64-bit arc indices) load as the same machine.
    std::string bytes = ReadFile(file), wide = bytes.substr(0, bytes.size() - 16 * m->n_states());
    for (int p = 0; p < m->n_states(); ++p) {
      std::string record = bytes.substr(bytes.size() - 16 * size_t(m->n_states() - p), 16);
      int64_t first = 0, end = 0;
      std::memcpy(&first, record.data() + 8, 4);
      std::memcpy(&end, record.data() + 12, 4);
      wide += record.substr(0, 8) + std::string(reinterpret_cast<char*>(&first), 8) +
              std::string(reinterpret_cast<char*>(&end), 8);
    }
    std::string const wide_file = WriteTempFile("wide.mmap", wide);
    EXPECT_EQ(Describe(FSTLoadFile(wide_file.c_str())), Describe(m));
  }

  // Three arcs: a 64-byte arc block (60 bytes and 4 of padding) before 16-byte state records.
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->set_initial(0);
  int a = FSTstring_map["a"], b = FSTstring_map["b"];
  m->add_arc(0, 1, b, a, 1);
  m->add_arc(0, 1, a, b, 2);
  m->add_arc(1, 0, a, a, 3);
  m->set_final(1, 0);
  m->dump_mmap(file.c_str(), FSTArcOrderInput);
  size_t const size = ReadFile(file).size();
  EXPECT_EQ(size % 4096, 64u + 2 * 16);
  FSTGeneric back = FSTLoadFile(file.c_str());
  EXPECT_EQ(back->arcs_out_with_input(0, b).size(), 1);
  EXPECT_EQ(back->arcs_out(0, FSTArcOrderInput).size(), 2);
  auto abort = KilledBySignal(SIGABRT);
  EXPECT_EXIT(back->arcs_out(0, FSTArcOrderOutput), abort,
              "^FATAL: FSTMmap: asking for order 2, but compiled with order 1\n");
  EXPECT_EXIT(back->arcs_out_with_output(0, a), abort,
              "^FATAL: FSTMmap: need order 2, but compiled with order 1\n");

  // Header fields, checked before anything is mapped (the file is rewritten: unmap it first).
  back = FSTGeneric();
  std::string bytes = ReadFile(file);
  size_t const fields = bytes.find('\n') + 1;
  auto patched = [&](size_t at, int v) {
    std::string copy = bytes;
    std::memcpy(&copy[fields + at], &v, 4);
    std::ofstream(file, std::ios::binary) << copy;
    return file.c_str();
  };
  EXPECT_EXIT(FSTLoadFile(patched(0, 0x78563412)), abort,
              "^FATAL: Incorrect byte order for FSTMmap \\(78563412\\)\n");
  EXPECT_EXIT(FSTLoadFile(patched(4, 2)), abort, "^FATAL: Bad file version for FSTMmap \\(2\\)\n");
  EXPECT_EXIT(FSTLoadFile(patched(16, 1000)), abort, "1000 arcs need 20000 bytes");
  // With no state records, an arc count beyond the file sized an array of that many arcs.
  std::string no_states = bytes;
  int zero = 0;
  std::memcpy(&no_states[fields + 20], &zero, 4);
  std::ofstream(file, std::ios::binary) << no_states;
  EXPECT_EXIT(FSTLoadFile(patched(16, 200000000)), abort, "200000000 arcs need 4000000000 bytes");
  std::string scaled = bytes;
  scaled.insert(fields - 1, " WeightScale=2");
  scaled.erase(4096, 14);  // from the zeros before the arc block, which starts at 4096
  std::ofstream(file, std::ios::binary) << scaled;
  testing::internal::CaptureStderr();
  FSTGeneric unscaled = FSTLoadFile(file.c_str());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "WARNING: WeightScale not supported for FSTMmap\n");
  EXPECT_EQ(unscaled->arcs_out(1).begin()[0]->weight, 3.0f);
}

}  // namespace

namespace {


size_t Mappings() {
  std::ifstream maps("/proc/self/maps");
  return size_t(std::count(std::istreambuf_iterator<char>(maps), std::istreambuf_iterator<char>(),
                           '\n'));
}

// A harness that unwinds from fatal stops (the fuzz targets) must not leak what a reader had
// built: fuzzing ran out of memory, and then out of mappings, before these were freed.
// A host catches the library's stops with the message and the place read; a reader's stop
// unwinds without leaking what it was building.
TEST(Readers, StopsAreCaughtWithThePlaceAndWithoutLeaks) {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->add_arc(0, 1, FSTstring_map["a"], 0, 0);
  std::string const mapped = WriteTempFile("leak.mmap", "");
  m->dump_mmap(mapped.c_str(), FSTArcOrderAny);
  std::string bytes = ReadFile(mapped);
  bytes[bytes.size() - 5] = 9;  // the first state's end arc beyond the arcs: found after mapping
  std::ofstream(mapped, std::ios::binary) << bytes;
  std::string const text = WriteTempFile("bad.fst", "#FSTBasic MinPlus\nI 0\nT 0 1 a\nT 0 x\n");
  auto stops = [](auto load) {
    FSTStop stop;
    return !FSTCatchStops(load, stop);
  };

  FSTStop stop;
  EXPECT_FALSE(FSTCatchStops([&] { FSTLoadFile(text.c_str()); }, stop));
  EXPECT_EQ(stop.message, "file: usage: T <from> <to> [<input> [<output> [<weight>]]]");
  EXPECT_EQ(stop.file, text);
  EXPECT_EQ(stop.line, 4);
  EXPECT_FALSE(FSTCatchStops([&] { m->arcs_out(7); }, stop));
  EXPECT_EQ(stop.message.rfind("failed check `(p) < _n_states' in ", 0), 0u) << stop.message;
  EXPECT_EQ(stop.file, "");
  // Nested: the inner stop is the inner caller's; the outer body goes on.
  bool inner = true;
  EXPECT_TRUE(FSTCatchStops([&] { inner = stops([&] { FSTLoadFile(mapped.c_str()); }); }, stop));
  EXPECT_TRUE(inner);

  testing::internal::CaptureStderr();
  size_t const maps_before = Mappings();
  long const states_before = FSTAllocator::usage(4).used;
  for (int i = 0; i < 200; ++i) {
    stops([&] { FSTLoadFile(mapped.c_str()); });
    stops([] { std::istringstream in("T 0 900 a\nT 0 x\n"); FSTLoadStream(in); });
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");  // caught stops print nothing
  EXPECT_LE(Mappings(), maps_before + 20);  // the allocators map a few chunks; 200 would leak
  EXPECT_EQ(FSTAllocator::usage(4).used, states_before);
}

}  // namespace
