// The Python module's native part: machines, grammars, models and n-gram models of the toolkit.
// Every library call that may stop runs under FSTCatchStops, so a stop becomes a Python exception
// (t2sfst.Error) instead of ending the interpreter. The toolkit is single-threaded: machines are
// only touched with the interpreter lock held. Models are read-only once loaded, so their batch
// calls release the lock and decode in several threads, one decoder each.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "FST.h"
#include "T2sApply.h"
#include "T2sBuilder.h"
#include "t2s_runtime.h"

namespace py = pybind11;

namespace {

// ---- stops and errors ---------------------------------------------------------------------------

// Raises t2sfst.Error (or the named subclass) with the message and where the library was reading.
[[noreturn]] void Raise(char const* type, std::string const& full_message, std::string const& file = "",
                        long line = 0, py::object extra = py::none()) {
  py::object error_type = py::module_::import("t2sfst").attr(type);
  std::string message = full_message;
  while (!message.empty() && message.back() == '\n') message.pop_back();
  std::string text = message;
  if (!file.empty()) text = file + (line ? ", line " + std::to_string(line) : "") + ": " + message;
  py::object error = extra.is_none() ? error_type(text) : error_type(text, extra);
  error.attr("message") = message;
  error.attr("file") = file;
  error.attr("line") = line;
  PyErr_SetObject(error_type.ptr(), error.ptr());
  throw py::error_already_set();
}

// Runs body, turning a stop of the library into t2sfst.Error.
template <class Body>
auto Guarded(Body body) -> decltype(body()) {
  FSTStop stop;
  if constexpr (std::is_void_v<decltype(body())>) {
    if (!FSTCatchStops(body, stop)) Raise("Error", stop.message, stop.file, stop.line);
  } else {
    decltype(body()) result{};
    if (!FSTCatchStops([&] { result = body(); }, stop))
      Raise("Error", stop.message, stop.file, stop.line);
    return result;
  }
}

// Text from the toolkit's bytes: invalid UTF-8 comes back as surrogates, so nothing is lost.
py::str Text(char const* data, size_t size) {
  PyObject* text = PyUnicode_DecodeUTF8(data, Py_ssize_t(size), "surrogateescape");
  if (!text) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(text);
}
py::str Text(std::string const& s) { return Text(s.data(), s.size()); }


// ---- machines -----------------------------------------------------------------------------------

FSTSemiringBase const* SemiringNamed(std::string const& name) {
  for (FSTSemiringBase const* s : {FSTMinPlus, FSTMaxPlus, FSTPlusTimes, FSTPlusTimesLog})
    if (name == s->name) return s;
  throw py::value_error("unknown semiring '" + name +
                        "': MinPlus, MaxPlus, PlusTimes or PlusTimesLog");
}

// A label given as its text (interned) or its id.
int LabelOf(py::handle label) {
  if (label.is_none()) return 0;
  if (py::isinstance<py::int_>(label)) {
    int const id = label.cast<int>();
    if (id < 0 || id >= FSTstring_map.size()) throw py::index_error("no label has id " + std::to_string(id));
    return id;
  }
  return FSTstring_map[label.cast<std::string>()];
}

struct PyArc {
  int input, output;
  float weight;
  int next;
  std::string input_label() const { return FSTstring_map[input]; }
  std::string output_label() const { return FSTstring_map[output]; }
};

// A machine: a counted handle, so a machine built from others keeps them alive.
class Machine {
 public:
  explicit Machine(FSTGeneric m) : m_(std::move(m)) {}
  FSTGeneric const& get() const { return m_; }

  // Every state known: a lazy machine computes all that it reaches.
  int NumStates() const {
    Guarded([&] { FSTOperandForce(*m_); });
    return m_->n_states();
  }
  void CheckState(int s) const {
    if (s < 0 || s >= NumStates()) throw py::index_error("no state " + std::to_string(s));
  }
  std::vector<PyArc> Arcs(int s) const {
    CheckState(s);
    return Guarded([&] {
      std::vector<PyArc> arcs;
      for (FSTArc* a : m_->arcs_out(s)) arcs.push_back({a->input, a->output, a->weight, a->to});
      return arcs;
    });
  }
  py::dict Info() const {
    int const n = NumStates();
    long arcs = 0, finals = 0;
    Guarded([&] {
      for (int s = 0; s < n; ++s) {
        arcs += m_->arcs_out(s).size();
        finals += m_->is_final(s);
      }
    });
    py::dict info;
    info["representation"] = m_->name;
    info["semiring"] = m_->semiring()->name;
    info["states"] = n;
    info["arcs"] = arcs;
    info["final_states"] = finals;
    info["initial"] = m_->initial();
    info["input_labels"] = m_->input_alphabet().size();
    info["output_labels"] = m_->output_alphabet().size();
    return info;
  }
  std::string Dump(std::string const& format, char const* title) const {
    return Guarded([&] {
      std::ostringstream os;
      if (format == "text")
        m_->dump_ascii(os, true);
      else if (format == "dot")
        m_->dump_dot(os, title);
      else
        FSTDumpAtt(m_, os, nullptr);
      return os.str();
    });
  }
  void Save(std::string const& path, std::string const& format, std::string const& order,
            std::string const& symbols) const {
    FSTArcOrder const arc_order = order == "input" ? FSTArcOrderInput
                                  : order == "output" ? FSTArcOrderOutput
                                                      : FSTArcOrderAny;
    if (format == "mmap") return Guarded([&] { m_->dump_mmap(path, arc_order); });
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) Raise("Error", "cannot write " + path);
    Guarded([&] {
      if (format == "text") {
        m_->dump_ascii(file, true);
      } else if (format == "binary") {
        m_->dump_binary(file);
      } else if (format == "dot") {
        m_->dump_dot(file, nullptr);
      } else {
        std::ofstream table;
        if (!symbols.empty()) table.open(symbols);
        FSTDumpAtt(m_, file, symbols.empty() ? nullptr : &table);
      }
    });
    if (!file.flush()) Raise("Error", "cannot write " + path);
  }
  // The mutable machine to build on: a stored one as it is, another copied first.
  FSTGenericInt* Mutable() {
    if (!m_->is_mutable()) m_ = Guarded([&] { return FSTMutableCopy(m_); });
    return m_.get();
  }

 private:
  FSTGeneric m_;
};

// Wraps an operation's result.
template <class Make>
Machine Made(Make make) {
  return Machine(Guarded(make));
}

void CheckFormat(std::string const& format, std::initializer_list<char const*> allowed) {
  for (char const* a : allowed)
    if (format == a) return;
  std::string list;
  for (char const* a : allowed) list += (list.empty() ? "" : ", ") + std::string(a);
  throw py::value_error("unknown format '" + format + "': " + list);
}

// ---- grammars -----------------------------------------------------------------------------------

FSTJsgfOptions GrammarOptions(std::vector<std::string> search_path, bool allow_undefined,
                              bool drop_tags, bool no_output, bool mark_rules, bool pauses) {
  FSTJsgfOptions options;
  options.search_path = std::move(search_path);
  options.allow_undefined = allow_undefined;
  options.drop_tags = drop_tags;
  options.no_output = no_output;
  options.mark_rules = mark_rules;
  options.pauses = pauses;
  return options;
}

// (machine, messages); t2sfst.GrammarError with the messages when the grammar does not compile.
py::tuple Compiled(bool ok, FSTGeneric const& machine, std::string const& messages,
                   std::string const& name, bool optimize) {
  if (!ok) Raise("GrammarError", name + " does not compile", "", 0, Text(messages));
  FSTGeneric result =
      optimize ? Guarded([&] { return FSTOptimizeA(machine, 1, 0.001f); }) : machine;
  return py::make_tuple(Machine(result), Text(messages));
}

// ---- models -------------------------------------------------------------------------------------

// A loaded T2S model and the applying state its single calls reuse.
class Model {
 public:
  Model(std::string const& path, std::string const& separator, bool ignore_case)
      : path_(path), ignore_case_(ignore_case) {
    char error[256];
    model_ = t2s_model_load_with(path.c_str(), ignore_case ? T2S_IGNORE_CASE : 0, error,
                                 sizeof error);
    if (!model_) Raise("Error", error, path);
    joined_ = std::make_unique<T2sJoinedOutputs>(model_, separator);
  }
  ~Model() {
    applier_[0].reset();
    applier_[1].reset();
    joined_.reset();
    t2s_model_free(model_);
  }
  t2s_model const* get() const { return model_; }
  std::string const& path() const { return path_; }

  // One text, with the interpreter lock held (which keeps the reused applier to one thread).
  py::object One(std::string const& text, bool rewrite) {
    auto& applier = applier_[rewrite];
    if (!applier) applier = std::make_unique<T2sLineApplier>(model_, *joined_, rewrite, ignore_case_);
    if (!applier->ok()) throw std::bad_alloc();
    T2sText const line(text.data(), text.size());
    out_.Truncate(0);
    if (!applier->Each(&line, 1, out_, ends_, found_)) throw std::bad_alloc();
    if (!found_[0]) return py::none();
    return Text(out_.data(), out_.size());
  }

  // Many texts, decoded without the interpreter lock in `threads` threads (0: the cores). The
  // texts are read where Python keeps their UTF-8 form; a private list holds them meanwhile.
  py::list Many(py::handle sequence, bool rewrite, unsigned threads) {
    py::list const texts = py::reinterpret_steal<py::list>(PySequence_List(sequence.ptr()));
    if (!texts) throw py::error_already_set();
    size_t const n = texts.size();
    std::vector<T2sText> lines(n);
    for (size_t i = 0; i < n; ++i) {
      Py_ssize_t size;
      char const* data = PyUnicode_AsUTF8AndSize(PyList_GET_ITEM(texts.ptr(), Py_ssize_t(i)), &size);
      if (!data) throw py::error_already_set();
      lines[i] = T2sText(data, size_t(size));
    }
    if (threads == 0) threads = std::max(1u, std::thread::hardware_concurrency());
    threads = unsigned(std::min<size_t>(threads, std::max<size_t>(1, n / 64)));
    PyObject* const results = PyList_New(Py_ssize_t(n));
    if (!results) throw py::error_already_set();
    py::list owned = py::reinterpret_steal<py::list>(results);
    for (size_t i = 0; i < n; ++i) {  // a list that is complete whatever happens below
      Py_INCREF(Py_None);
      PyList_SET_ITEM(results, Py_ssize_t(i), Py_None);
    }
    // Each thread decodes a chunk of lines without the lock, then takes it to make their strings:
    // its buffer stays small, and one thread's strings are made while the others decode.
    bool failed = false;
    auto decode = [&](size_t begin, size_t end) {
      constexpr size_t kChunk = 4096;
      T2sLineApplier applier(model_, *joined_, rewrite, ignore_case_);
      T2sOutputBuffer out;
      std::vector<size_t> ends;
      std::vector<bool> found;
      for (size_t first = begin; first < end; first += kChunk) {
        size_t const last = std::min(end, first + kChunk);
        out.Truncate(0);
        bool const ok = applier.ok() && applier.Each(lines.data() + first, last - first, out, ends, found);
        py::gil_scoped_acquire locked;
        if (!ok || failed) {
          failed = true;
          return;
        }
        size_t start = 0;
        for (size_t i = 0; i < last - first; ++i) {
          if (found[i]) {
            PyObject* item = PyUnicode_DecodeUTF8(out.data() + start, Py_ssize_t(ends[i] - start),
                                                  "surrogateescape");
            if (!item) {
              PyErr_Clear();
              failed = true;
              return;
            }
            PyObject* none = PyList_GET_ITEM(results, Py_ssize_t(first + i));
            PyList_SET_ITEM(results, Py_ssize_t(first + i), item);
            Py_DECREF(none);
          }
          start = ends[i];
        }
      }
    };
    {
      py::gil_scoped_release unlocked;
      std::vector<std::thread> running;
      for (unsigned t = 1; t < threads; ++t)
        running.emplace_back(decode, n * t / threads, n * (t + 1) / threads);
      decode(0, n / threads);
      for (auto& thread : running) thread.join();
    }
    if (failed) throw std::bad_alloc();
    return owned;
  }

  // A text of many lines at once, as the command reads standard input: one output line (with
  // its newline) for each line, empty for a line the model does not read (whole lines only). No
  // str object per line is made, and the lock is released meanwhile.
  py::str Lines(py::str const& text, bool rewrite) {
    Py_ssize_t size;
    char const* data = PyUnicode_AsUTF8AndSize(text.ptr(), &size);  // held by text meanwhile
    if (!data) throw py::error_already_set();
    T2sOutputBuffer out;
    bool ok;
    {
      py::gil_scoped_release unlocked;
      std::vector<T2sText> lines;
      T2sSplitLines(data, size_t(size), lines);
      T2sLineApplier applier(model_, *joined_, rewrite, ignore_case_);
      ok = applier.ok() && applier.Lines(lines.data(), lines.size(), out, [](size_t) {}) == lines.size();
    }
    if (!ok) throw std::bad_alloc();
    return Text(out.data(), out.size());
  }

 private:
  std::string path_;
  t2s_model* model_ = nullptr;
  std::unique_ptr<T2sJoinedOutputs> joined_;
  std::unique_ptr<T2sLineApplier> applier_[2];
  bool ignore_case_;
  T2sOutputBuffer out_;
  std::vector<size_t> ends_;
  std::vector<bool> found_;
};

// ---- n-gram models ------------------------------------------------------------------------------

class Ngram {
 public:
  explicit Ngram(FSTGeneric m, std::string const& path) : m_(std::move(m)) {
    model_ = FSTNgramCast(m_);
    if (!model_) Raise("Error", "not an n-gram model", path);
  }
  FSTNgramRep const& get() const { return *model_; }
  FSTGeneric const& machine() const { return m_; }

 private:
  FSTGeneric m_;
  FSTNgramRep const* model_;
};

}  // namespace

PYBIND11_MODULE(_core, module) {
  module.doc() = "Native part of the t2sfst module (use the t2sfst package).";
  module.attr("version") = T2SFST_VERSION;

  py::class_<PyArc>(module, "Arc", "An arc: labels (ids and texts), weight and next state.")
      .def_readonly("input", &PyArc::input)
      .def_readonly("output", &PyArc::output)
      .def_readonly("weight", &PyArc::weight)
      .def_readonly("next", &PyArc::next)
      .def_property_readonly("input_label", [](PyArc const& a) { return Text(a.input_label()); })
      .def_property_readonly("output_label", [](PyArc const& a) { return Text(a.output_label()); })
      .def("__repr__", [](PyArc const& a) {
        return py::str("Arc({!r}, {!r}, {}, {})")
            .format(Text(a.input_label()), Text(a.output_label()), a.weight, a.next);
      });

  py::class_<Machine>(module, "Machine")
      .def(py::init([](std::string const& semiring) {
             return Machine(FSTBasic(SemiringNamed(semiring)));
           }),
           py::arg("semiring") = "MinPlus", "An empty mutable machine over a semiring.")
      .def_property_readonly("num_states", &Machine::NumStates)
      .def_property_readonly("initial", [](Machine const& m) { return m.get()->initial(); })
      .def_property_readonly("semiring", [](Machine const& m) { return m.get()->semiring()->name; })
      .def_property_readonly("representation", [](Machine const& m) { return m.get()->name; })
      .def("states", [](Machine const& m) { return py::module_::import("builtins").attr("range")(m.NumStates()); })
      .def("arcs", &Machine::Arcs, py::arg("state"))
      .def("is_final", [](Machine const& m, int s) { m.CheckState(s); return m.get()->is_final(s); })
      .def("final_weight", [](Machine const& m, int s) { m.CheckState(s); return m.get()->final_weight(s); })
      .def("info", &Machine::Info)
      .def("text", [](Machine const& m) { return Text(m.Dump("text", nullptr)); })
      .def("dot", [](Machine const& m, std::string const& title) {
             return Text(m.Dump("dot", title.empty() ? nullptr : title.c_str()));
           }, py::arg("title") = "")
      .def("att", [](Machine const& m) { return Text(m.Dump("att", nullptr)); })
      .def("__str__", [](Machine const& m) { return Text(m.Dump("text", nullptr)); })
      .def("save", [](Machine const& m, std::string const& path, std::string const& format,
                      std::string const& order, std::string const& symbols) {
             CheckFormat(format, {"text", "binary", "mmap", "att", "dot"});
             m.Save(path, format, order, symbols);
           }, py::arg("path"), py::arg("format") = "text", py::arg("order") = "input",
           py::arg("symbols") = "")
      // building
      .def("add_state", [](Machine& m) { return m.Mutable()->add_states(1); })
      .def("add_states", [](Machine& m, int n) { return m.Mutable()->add_states(n); })
      .def("set_initial", [](Machine& m, int s) { m.CheckState(s); m.Mutable()->set_initial(s); })
      .def("set_final", [](Machine& m, int s, py::object w) {
             m.CheckState(s);
             FSTGenericInt* g = m.Mutable();
             g->set_final(s, w.is_none() ? g->semiring()->one : w.cast<float>());
           }, py::arg("state"), py::arg("weight") = py::none())
      .def("add_arc", [](Machine& m, int from, int to, py::object input, py::object output,
                         py::object weight) {
             m.CheckState(from);
             m.CheckState(to);
             int const in = LabelOf(input);
             int const out = output.is(py::ellipsis()) ? in : LabelOf(output);
             FSTGenericInt* g = m.Mutable();
             g->add_arc(from, to, in, out, weight.is_none() ? g->semiring()->one : weight.cast<float>());
           }, py::arg("source"), py::arg("target"), py::arg("input"), py::arg("output") = py::ellipsis(),
           py::arg("weight") = py::none())
      // the algebra
      .def("compose", [](Machine const& a, Machine const& b) { return Made([&] { return FSTCompose(a.get(), b.get()); }); })
      .def("union", [](Machine const& a, Machine const& b) { return Made([&] { return FSTUnion(a.get(), b.get()); }); })
      .def("concat", [](Machine const& a, Machine const& b) { return Made([&] { return FSTConcatenate(a.get(), b.get()); }); })
      .def("closure", [](Machine const& a, bool plus) { return Made([&] { return FSTClosure(a.get(), plus); }); },
           py::arg("plus") = false)
      .def("invert", [](Machine const& a) { return Made([&] { return FSTInvert(a.get()); }); })
      .def("project", [](Machine const& a, bool output) {
             return Made([&] {
               return output ? FSTProject(a.get(), FSTArcOrderOutput, FSTArcOrderOutput)
                             : FSTProject(a.get(), FSTArcOrderInput, FSTArcOrderInput);
             });
           }, py::arg("output") = false)
      .def("reverse", [](Machine const& a) { return Made([&] { return FSTReverse(a.get()); }); })
      .def("determinize", [](Machine const& a, int limit, float delta, bool acceptor) {
             return Made([&] { return FSTDeterminize(a.get(), limit, acceptor, delta, false); });
           }, py::arg("limit") = 1, py::arg("delta") = 0.001f, py::arg("acceptor") = false)
      .def("remove_epsilons", [](Machine const& a, float delta, bool acceptor) {
             return Made([&] { return FSTRemoveEpsilons(a.get(), acceptor, delta); });
           }, py::arg("delta") = 0.001f, py::arg("acceptor") = false)
      .def("minimize", [](Machine const& a, float delta) { return Made([&] { return FSTMinimize(a.get(), delta); }); },
           py::arg("delta") = 0.001f)
      .def("optimize", [](Machine const& a, int limit, float delta, bool acceptor) {
             return Made([&] {
               return acceptor ? FSTOptimizeA(a.get(), limit, delta) : FSTOptimize(a.get(), limit, delta);
             });
           }, py::arg("limit") = 1, py::arg("delta") = 0.001f, py::arg("acceptor") = false)
      .def("shortestpath", [](Machine const& a, int n) { return Made([&] { return FSTShortestPath(a.get(), n); }); },
           py::arg("n") = 1)
      .def("push", [](Machine const& a) { return Made([&] { return FSTPushWeights(a.get()); }); })
      .def("trim", [](Machine const& a) { return Made([&] { return FSTTrim(FSTBasic(a.get())); }); })
      .def("copy", [](Machine const& a) { return Made([&] { return FSTBasic(a.get()); }); },
           "A stored (mutable) copy; a lazy machine is computed whole.")
      .def("__matmul__", [](Machine const& a, Machine const& b) { return Made([&] { return FSTCompose(a.get(), b.get()); }); })
      .def("__or__", [](Machine const& a, Machine const& b) { return Made([&] { return FSTUnion(a.get(), b.get()); }); })
      .def("__add__", [](Machine const& a, Machine const& b) { return Made([&] { return FSTConcatenate(a.get(), b.get()); }); });

  module.def("load", [](std::string const& source) { return Made([&] { return FSTLoad(source); }); },
             py::arg("source"), "A machine from a file (any format) or an expression.");
  module.def("label", [](int id) {
    if (id < 0 || id >= FSTstring_map.size()) throw py::index_error("no label has id " + std::to_string(id));
    return Text(FSTstring_map[id]);
  });
  module.def("label_id", [](std::string const& text) { return FSTstring_map[text]; });

  module.def("_compile_grammar_file", [](std::string const& path, std::vector<std::string> search_path,
                                         bool allow_undefined, bool drop_tags, bool no_output,
                                         bool mark_rules, bool pauses, bool optimize) {
    FSTGeneric machine;
    std::string messages;
    FSTJsgfOptions const options =
        GrammarOptions(std::move(search_path), allow_undefined, drop_tags, no_output, mark_rules, pauses);
    bool const ok = Guarded([&] { return FSTJsgfCompileFile(machine, messages, path, options); });
    return Compiled(ok, machine, messages, path, optimize);
  });
  module.def("_compile_grammar_string", [](std::string const& text, bool allow_undefined,
                                           bool drop_tags, bool no_output, bool mark_rules,
                                           bool pauses, bool optimize) {
    FSTGeneric machine;
    std::string messages;
    bool const ok = Guarded([&] {
      return FSTJsgfParseString(machine, messages, text.c_str(), drop_tags, no_output, mark_rules,
                                pauses, allow_undefined);
    });
    return Compiled(ok, machine, messages, "the grammar", optimize);
  });
  module.def("_build_model", [](Machine const& compiled, std::string const& path) {
    Guarded([&] { T2sBuildModel(compiled.get(), path.c_str()); });
  });

  py::class_<Model>(module, "_Model")
      .def(py::init<std::string const&, std::string const&, bool>())
      .def("apply", [](Model& m, std::string const& text) { return m.One(text, false); })
      .def("rewrite", [](Model& m, std::string const& text) { return m.One(text, true); })
      .def("apply_many", [](Model& m, py::handle texts, unsigned threads) {
        return m.Many(texts, false, threads);
      })
      .def("rewrite_many", [](Model& m, py::handle texts, unsigned threads) {
        return m.Many(texts, true, threads);
      })
      .def("apply_lines", [](Model& m, py::str const& text) { return m.Lines(text, false); })
      .def("rewrite_lines", [](Model& m, py::str const& text) { return m.Lines(text, true); })
      .def_property_readonly("num_states", [](Model const& m) { return t2s_model_num_states(m.get()); })
      .def_property_readonly("num_arcs", [](Model const& m) { return t2s_model_num_arcs(m.get()); })
      .def_property_readonly("num_strings", [](Model const& m) { return t2s_model_num_strings(m.get()); });

  py::class_<Ngram>(module, "Ngram")
      .def_static("from_arpa", [](std::string const& path) {
        std::ifstream in(path);
        if (!in) Raise("Error", "cannot read the file", path);
        FSTGeneric model;
        std::string error;
        if (!Guarded([&] { return FSTNgramReadArpa(in, path.c_str(), model, error); }))
          Raise("Error", error);
        return Ngram(model, path);
      }, py::arg("path"), "A model compiled from an ARPA file.")
      .def(py::init([](std::string const& path) { return Ngram(Guarded([&] { return FSTLoad(path); }), path); }),
           py::arg("path"), "A compiled model from its file.")
      .def_property_readonly("order", [](Ngram const& n) { return n.get().order(); })
      .def_property_readonly("machine", [](Ngram const& n) { return Machine(n.machine()); })
      .def("score", [](Ngram const& n, std::string const& sentence) {
        FSTNgramRep::SentenceScore const s = Guarded([&] { return n.get().score(sentence); });
        bool const lost = (s.oov && !n.get().unknown_word()) || s.cost >= 1e29;
        return lost ? HUGE_VAL : s.cost;
      }, py::arg("sentence"), "The cost -ln P of '<s> sentence </s>'; inf with a word the model lacks.")
      .def("_totals", [](Ngram const& n, std::vector<std::string> const& sentences) {
        double cost = 0;
        size_t words = 0, oov = 0;
        Guarded([&] {
          for (std::string const& sentence : sentences) {
            FSTNgramRep::SentenceScore const s = n.get().score(sentence);
            cost += s.cost;
            words += s.words;
            oov += s.oov;
          }
        });
        return py::make_tuple(cost, words, oov);
      })
      .def("save", [](Ngram const& n, std::string const& path) {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        if (!out) Raise("Error", "cannot write " + path);
        Guarded([&] { n.get().dump_ngram(out); });
        if (!out.flush()) Raise("Error", "cannot write " + path);
      }, py::arg("path"))
      .def("pack", [](Ngram const& n, std::string const& path) {
        return Guarded([&] { return FSTNgramDumpPackedQuiet(n.machine(), path.c_str()); });
      }, py::arg("path"), "Writes the packed quantized file; returns its MD5 digest.");
}
