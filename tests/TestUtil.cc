#include "TestUtil.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

std::string DescribeArcs(FSTArcIter arcs) {
  std::ostringstream os;
  for (FSTArc* a : arcs)
    os << " " << a->input << ":" << a->output << "/" << a->weight << ">" << a->to;
  return os.str();
}

std::string Describe(FSTGeneric const& m) {
  std::ostringstream os;
  os << m->semiring()->name << " initial " << m->initial() << "\n";
  for (int p : m->states()) {
    os << p;
    if (m->is_final(p)) os << " final " << m->final_weight(p);
    os << " potential " << m->potential(p) << " |";
    for (FSTArc* a : m->arcs_out(p)) {
      os << " " << a->input << ":" << a->output << "/" << a->weight << ">" << a->to;
      if (a->from != p) os << "(from " << a->from << ")";
    }
    os << "\n";
  }
  return os.str();
}

ChainRep::ChainRep(int n, bool* destroyed) : _length(n), _destroyed(destroyed) {
  name = "ChainRep";
  _semiring = FSTMinPlus;
  for (int i = 0; i + 1 < n; ++i) _labels.insert(i + 2);
  reset();
}

ChainRep::~ChainRep() {
  if (_destroyed) *_destroyed = true;
}

void ChainRep::reset() const {
  auto self = const_cast<ChainRep*>(this);
  self->_initial = _length > 0 ? 0 : -1;
  self->_n_states = _length > 0 ? 1 : 0;
}

void ChainRep::force() const {
  for (int p : states()) arcs_out(p);
}

FSTArcIter ChainRep::arcs_out(int p, FSTArcOrder) const {
  if (p + 1 >= _length) return FSTArcIter();
  if (p + 2 > _n_states) const_cast<ChainRep*>(this)->_n_states = p + 2;
  auto* body = new FSTArcIterData;
  body->arcs.push_back(FSTNewArc(p + 2, p + 2, float(p), p + 1, p));
  return FSTArcIter(body);
}

FSTArcIter ChainRep::arcs_out_with_input(int p, int label, FSTArcMode) const {
  return label == p + 2 ? arcs_out(p) : FSTArcIter();
}

FSTArcIter ChainRep::arcs_out_with_output(int p, int label, FSTArcMode m) const {
  return arcs_out_with_input(p, label, m);
}

namespace {
std::string slurp(std::string const& path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}
}  // namespace

CommandResult RunCommand(std::string const& command_line) {
  std::string out = WriteTempFile("command.out", "");
  std::string err = WriteTempFile("command.err", "");
  int raw = std::system(("(" + command_line + ") >" + out + " 2>" + err + " </dev/null").c_str());
  CommandResult result;
  result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  result.out = slurp(out);
  result.err = slurp(err);
  return result;
}

std::string WriteTempFile(std::string const& name, std::string const& contents) {
  char const* dir = std::getenv("TMPDIR");
  std::string path = std::string(dir && *dir ? dir : "/tmp") + "/t2sfst_test_" +
                     std::to_string(getpid()) + "_" + name;
  std::ofstream(path) << contents;
  return path;
}

FSTGeneric Text(std::string const& text) {
  std::istringstream is(text);
  return FSTLoadStream(is);
}
