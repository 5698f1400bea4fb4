// One measurement per process, so peak memory belongs to that measurement alone:
//   t2sfst_formats_probe make N FILE            a text machine of N arcs (N/10 states, 50 labels)
//   t2sfst_formats_probe write text|binary|mmap IN OUT   seconds to write IN in that format
//   t2sfst_formats_probe load FILE               seconds to load, then to the first arc
//   t2sfst_formats_probe compose OUT A B [C...]  the lazy composition (A o B) o C ..., copied
//                                                into a stored machine and written as binary
// Each prints one line of "key value" pairs, with the process's peak resident megabytes.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "FST.h"

namespace {

double Seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

double PeakMegabytes() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return double(usage.ru_maxrss) / 1024.0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string mode = argc > 1 ? argv[1] : "";
  auto start = std::chrono::steady_clock::now();
  if (mode == "make" && argc == 4) {
    long n = std::atol(argv[2]);
    int const states = int(n / 10 > 1 ? n / 10 : 1);
    std::ofstream out(argv[3]);
    out << "#FSTBasic MinPlus\nI 0\nF " << states - 1 << "\n";
    unsigned x = 12345;
    for (long i = 0; i < n; ++i) {
      x = x * 1103515245u + 12345u;
      out << "T " << i % states << " " << x % unsigned(states) << " w" << (x >> 20) % 50 << " w"
          << (x >> 8) % 50 << " " << float((x >> 12) % 1000) * 0.01f << "\n";
    }
    return 0;
  }
  if (mode == "write" && argc == 5) {
    FSTGeneric m = FSTLoadFile(argv[3]);
    std::string format = argv[2];
    start = std::chrono::steady_clock::now();
    if (format == "text") m->dump_ascii(argv[4], true);
    else if (format == "binary") m->dump_binary(argv[4]);
    else m->dump_mmap(argv[4], FSTArcOrderInput);
    std::printf("write_s %.3f peak_MB %.0f\n", Seconds(start), PeakMegabytes());
    return 0;
  }
  if (mode == "load" && argc == 3) {
    FSTGeneric m = FSTLoadFile(argv[2]);
    double load = Seconds(start);
    FSTArcIter arcs = m->arcs_out(m->initial() >= 0 ? m->initial() : 0);
    int first = arcs.done() ? -1 : (*arcs)->to;
    std::printf("load_s %.3f first_arc_s %.6f peak_MB %.0f (first arc to %d)\n", load,
                Seconds(start), PeakMegabytes(), first);
    return 0;
  }
  if (mode == "compose" && argc >= 5) {
    FSTGeneric m = FSTLoadFile(argv[3]);
    for (int i = 4; i < argc; ++i) m = FSTCompose(m, FSTLoadFile(argv[i]));
    m = FSTBasic(m);
    m->dump_binary(argv[2]);
    std::printf("compose_s %.3f peak_MB %.0f states %d\n", Seconds(start), PeakMegabytes(),
                m->n_states());
    return 0;
  }
  std::fprintf(stderr, "usage: see the top of FormatsProbe.cc\n");
  return 2;
}
