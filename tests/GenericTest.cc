#include <gtest/gtest.h>

#include "FST.h"
#include "TestUtil.h"

namespace {

using ::testing::ExitedWithCode;
using ::testing::KilledBySignal;

TEST(Handle, CountsReferencesAndDeletesWithTheLast) {
  bool destroyed = false;
  {
    FSTGeneric a = new ChainRep(3, &destroyed);
    EXPECT_EQ(a->reference_count(), 1);
    {
      FSTGeneric b = a;
      FSTGeneric c;
      c = b;
      EXPECT_EQ(a->reference_count(), 3);
      c = FSTGeneric();
      EXPECT_EQ(a->reference_count(), 2);
      FSTReferenceCounter<FSTGenericInt> counted(a.get());
      EXPECT_EQ(a->reference_count(), 3);
    }
    EXPECT_EQ(a->reference_count(), 1);
    a = a;  // self-assignment keeps the machine
    EXPECT_FALSE(destroyed);
  }
  EXPECT_TRUE(destroyed);
  FSTGeneric none;
  EXPECT_TRUE(none.null());
  EXPECT_FALSE(none.reload());
}

TEST(Interface, DefaultsOfAComputedMachine) {
  FSTGeneric m = new ChainRep(4);
  EXPECT_EQ(m->name, "ChainRep");
  EXPECT_EQ(m->n_arcs_out(0), 2147483647);
  EXPECT_EQ(m->initial(), 0);
  EXPECT_EQ(FSTGeneric(new ChainRep(0))->initial(), -1);

  // The state range follows states discovered during the walk.
  FSTStateRange range = m->states();
  EXPECT_EQ(range.size(), 1);
  int visited = 0;
  for (int p : m->states()) {
    EXPECT_EQ(p, visited++);
    m->arcs_out(p);
  }
  EXPECT_EQ(visited, 4);
  EXPECT_EQ(range.size(), 4);

  // Copies of the arcs: v is cleared first and its storage fits exactly.
  FSTArcVector v;
  v.push_back(FSTNewArc(9, 9, 9, 9, 9));
  FSTArc* stale = v[0];
  m->arcs_out(v, 1);
  ASSERT_EQ(v.size(), 1u);
  EXPECT_EQ(v[0]->input, 3);
  EXPECT_EQ(v[0]->weight, 1.0f);
  EXPECT_EQ(v[0]->to, 2);
  FSTDeleteArc(stale);
  FSTDeleteArc(v[0]);
}

TEST(ArcIter, BodyOwnsComputedArcsAndIsShared) {
  FSTAllocator::gc();
  long arcs_before = FSTAllocator::usage(FSTArcUnits).used;
  FSTGeneric m = new ChainRep(3);
  FSTArcIter it = m->arcs_out(0);
  ASSERT_NE(it.data(), nullptr);
  EXPECT_EQ(it.data()->reference_count(), 1);
  {
    FSTArcIter copy = it;
    EXPECT_EQ(it.data()->reference_count(), 2);
    FSTArcIter assigned;
    assigned = copy;
    EXPECT_EQ(it.data()->reference_count(), 3);
  }
  EXPECT_EQ(it.data()->reference_count(), 1);
  EXPECT_EQ(FSTAllocator::usage(FSTArcUnits).used, arcs_before + 1);
  EXPECT_FALSE(it.done());
  EXPECT_EQ(it.size(), 1);
  EXPECT_EQ(it->input, 2);
  ++it;
  EXPECT_TRUE(it.done());
  it = FSTArcIter();  // the last iterator frees the body and its arcs
  EXPECT_EQ(FSTAllocator::usage(FSTArcUnits).used, arcs_before);

  FSTArcIter empty;
  EXPECT_TRUE(empty.done());
  EXPECT_EQ(empty.begin(), nullptr);
  EXPECT_EQ(empty.end(), nullptr);
}

TEST(Interface, SortArcs) {
  FSTArc a{3, 1, 0, 0, 0}, b{1, 2, 0, 0, 0}, c{2, 0, 0, 0, 0};
  FSTArcVector v{&a, &b, &c};
  FSTGenericInt::_sort_arcs(v, FSTArcOrderAny);
  EXPECT_EQ(v, (FSTArcVector{&a, &b, &c}));
  FSTGenericInt::_sort_arcs(v, FSTArcOrder(5));
  EXPECT_EQ(v, (FSTArcVector{&a, &b, &c}));
  FSTGenericInt::_sort_arcs(v, FSTArcOrderInput);
  EXPECT_EQ(v, (FSTArcVector{&b, &c, &a}));
  FSTGenericInt::_sort_arcs(v, FSTArcOrderOutput);
  EXPECT_EQ(v, (FSTArcVector{&c, &a, &b}));
}

TEST(InterfaceDeathTest, UnsupportedOperationsNameThemselves) {
  FSTGeneric m = new ChainRep(2);
  fst::vector<double> d;
  struct Case {
    std::function<void()> call;
    char const* message;
  };
  // The formatting is shared; these cover the bare names and the ones written with "()".
  std::vector<Case> cases = {
      {[&] { m->arc_out(0); }, "ChainRep::arc_out\\(\\) not supported"},
      {[&] { m->restore_input_output_index(); },
       "ChainRep::restore_input_output_index\\(\\) not supported"},
      {[&] { m->add_arc(0, 0, 0, 0, 0); }, "ChainRep::add_arc not supported"},
      {[&] { m->delete_states({}); }, "ChainRep::delete_states not supported"},
      {[&] { m->arcs_in_with_output(0, 0, FSTArcModeEqual); },
       "ChainRep::arcs_in_with_output not supported"},
      {[&] { m->_train_update(d, d, 1.0); }, "ChainRep::_train_update\\(\\) not supported"},
  };
  for (Case const& c : cases) {
    // The "()" in the X text is a regex group unless escaped, hence the escapes above.
    EXPECT_EXIT(c.call(), KilledBySignal(SIGABRT), std::string("^FATAL: ") + c.message);
  }
}

TEST(DiagnosticsDeathTest, FatalAndWarnFormats) {
  EXPECT_EXIT(FSTFatal("boom %d %s", 42, "x"), KilledBySignal(SIGABRT), "^FATAL: boom 42 x\n$");
  testing::internal::CaptureStderr();
  FSTWarn("careful %s", "now");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "WARNING: careful now\n");
  EXPECT_EXIT(FSTFatal("%s", ""), KilledBySignal(SIGABRT), "^FATAL: \n$");
}

TEST(Reload, KeepsTheMachineWhileTheFileIsUnchanged) {
  std::string file = WriteTempFile("reload.fst", "#FSTBasic MinPlus\n");
  EXPECT_EQ(file_mtime("/nonexistent/t2sfst/file"), 0);
  long mtime = file_mtime(file.c_str());
  EXPECT_GT(mtime, 0);

  bool destroyed = false;
  FSTGeneric m = new ChainRep(2, &destroyed);
  FSTGenericInt* before = m.get();
  // Reload disabled (time 0), then enabled with the file's own time: the same machine.
  EXPECT_FALSE(m.reload());
  EXPECT_EQ(m.get(), before);
  m->enable_reload(file.c_str(), mtime);
  EXPECT_FALSE(m.reload());
  EXPECT_EQ(m.get(), before);
  EXPECT_EQ(m->reference_count(), 1);
  EXPECT_FALSE(destroyed);

  // A changed time replaces it with the file's machine and releases the old one.
  m->enable_reload(file.c_str(), mtime - 1);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(m.reload());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Reloading " + file + " because mtime " +
                                                        std::to_string(mtime) +
                                                        " != " + std::to_string(mtime - 1) + ".\n");
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(m->name, "FSTBasic");
  std::remove(file.c_str());
}

}  // namespace
