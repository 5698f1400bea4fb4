#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>

#include "FSTStringMap.h"
#include "T2sBuilder.h"

FstModel* FstDumpBinary(FSTGeneric const& machine) {
  FstModel* model = new FstModel;

  // Output strings sorted byte-wise; the empty string (epsilon) comes first with index 0.
  std::map<std::string, uint32_t> index;
  for (int label : machine->output_alphabet()) index[FSTstring_map[label]];
  index[""];
  uint32_t next_index = 0;
  size_t pool_bytes = 0;
  for (auto& entry : index) {
    entry.second = next_index++;
    pool_bytes += entry.first.size() + 1;
  }
  model->num_strings = uint32_t(index.size());
  model->pool_size = uint32_t(pool_bytes);
  model->pool.assign(pool_bytes, '\0');
  size_t written = 0;
  for (auto const& entry : index) {
    std::memcpy(model->pool.data() + written, entry.first.data(), entry.first.size());
    written += entry.first.size() + 1;
  }
  if (written != model->pool_size) {
    std::cerr << "BOOM\n";
    std::exit(1);
  }

  if (machine->initial() >= 0) model->start = machine->initial();
  FSTStateRange const all = machine->states();
  for (int s = 0; s < all.size(); ++s) {
    FstModel::State state{uint32_t(model->arcs.size()), 0, uint8_t(machine->is_final(s))};
    for (FSTArc* a : machine->arcs_out(s, FSTArcOrderAny)) {
      FstModel::ModelArc arc{};
      // Input labels are byte values written as decimal text; only the low byte is kept.
      if (a->input != 0) arc.input = uint8_t(std::strtol(FSTstring_map[a->input], nullptr, 10));
      if (a->output != 0) arc.output = index[FSTstring_map[a->output]];
      arc.next = a->to;
      arc.weight = a->weight;
      model->arcs.push_back(arc);
    }
    state.end_arc = uint32_t(model->arcs.size());
    model->states.push_back(state);
  }
  model->num_states = uint32_t(model->states.size());
  model->num_arcs = uint32_t(model->arcs.size());
  return model;
}

namespace {

class LittleEndianWriter {
 public:
  explicit LittleEndianWriter(std::ostream& os) : _os(os) {}
  void u8(uint8_t v) { _os.put(char(v)); }
  void u32(uint32_t v) {
    char bytes[4] = {char(v), char(v >> 8), char(v >> 16), char(v >> 24)};
    _os.write(bytes, 4);
  }
  void s32(int32_t v) { u32(uint32_t(v)); }
  void f32(float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, 4);
    u32(bits);
  }
  void zeros(int n) {
    for (int i = 0; i < n; ++i) _os.put('\0');
  }

 private:
  std::ostream& _os;
};

}  // namespace

void SaveModel(char const* path, FstModel* model) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  LittleEndianWriter out(file);
  out.s32(model->start);
  out.u32(model->num_states);
  for (FstModel::State const& s : model->states) {
    out.u32(s.first_arc);
    out.u32(s.end_arc);
    out.u8(s.final);
    out.zeros(3);
  }
  out.u32(model->num_arcs);
  for (FstModel::ModelArc const& a : model->arcs) {
    out.u8(a.input);
    out.zeros(3);
    out.u32(a.output);
    out.s32(a.next);
    out.f32(a.weight);
  }
  out.u32(model->num_strings);
  out.u32(model->pool_size);
  file.write(model->pool.data(), std::streamsize(model->pool.size()));
}
