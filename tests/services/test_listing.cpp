// Traces, the print entries and the listing file: real files in temporary folders, standard
// output checked after every pass, and each platform failure of Set and Reset injected.
#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

#include "QORKytListing.h"
#include "QORSystem.h"
#include "kernels.h"
#include "platform/fault_injection.h"
#include "services/capture.h"

namespace {

using namespace qkm_test;
using qor::fault::Op;
using LS = QORKytListingServices;
using Text = QORUnicodeString;

constexpr unsigned int kClosed = 0xFFFFFFFFu;

// Each test starts and ends with no listing, no armed fault and the library's trace states.
class Listing : public ::testing::Test {
 protected:
  void SetUp() override { Forget(); }
  void TearDown() override {
    qor::fault::reset();
    if (LS::Reset() < 0) Forget();
    QORKYTTraceState("KYTPrint", 1);
  }
  // Drops a stale listing without closing anything (its descriptor may be dead or reused).
  static void Forget() {
    qor::fault::reset();
    if (LS::GetDescriptor() != kClosed) (void)LS::Reset();
    LS::_Descriptor = kClosed;
    LS::_FileName = "";
    LS::_Directory = "";
  }
  static std::string Name() { return static_cast<const char *>(LS::GetFileName()); }
  static void print(const char *text) { ehprint(text, 1); }
  // What `fn` sends to standard output, checking the descriptor is left in place.
  template <class F>
  static std::string Printed(F fn) {
    StdoutCapture out;
    fn();
    EXPECT_TRUE(out.intact());
    return out.text();
  }
};

TEST_F(Listing, TracesAndWhatPrintsWithoutAListing) {
  EXPECT_STREQ(Tra_KYTOutput.GetName(), "KYTOutput");
  EXPECT_STREQ(Tra_KYTOutput.GetDescription(), "Kytani traces for acquisition");
  EXPECT_STREQ(Tra_KYTStorageLink.GetDescription(), "Kytani traces for external storage links ");
  EXPECT_STREQ(Tra_KYTCpuElapse.GetDestination(), "STDOUT");
  // Six traces switched, the others left; no folder: no listing, nothing said.
  QORKYTTraceState("KYTInfra", 0);
  QORKYTTraceState("KYTOutput", 1);
  QORKYTTraceState("KYTCompute", 1);
  QORKYTTraceState("KYTPrint", 0);
  ASSERT_EQ(unsetenv("ZMR_QST_OUT"), 0);
  EXPECT_EQ(Printed([] { SetKytTraces(); }), "");
  EXPECT_EQ(LS::GetDescriptor(), kClosed);
  EXPECT_TRUE(Tra_KYTPrint.IsActive());
  EXPECT_TRUE(Tra_KYTError.IsActive());
  for (QORTrace *t : {&Tra_KYTCompute, &Tra_KYTDefine, &Tra_KYTStorage, &Tra_KYTAcquire})
    EXPECT_FALSE(t->IsActive()) << t->GetName();
  EXPECT_FALSE(Tra_KYTInfra.IsActive());
  EXPECT_TRUE(Tra_KYTOutput.IsActive());
  QORKYTTraceState("KYTInfra", 1);

  EXPECT_EQ(Printed([] {
              print("x");
              const int n = 42;
              ehprini("n = ", &n, 4);
              const double v = 0.125;
              ehprinr("v = %.3f", &v, 7);
            }),
            "x\nn = 42\n\n\nv = 0.125\n\n");
  QORKYTTraceState("KYTPrint", 0);
  EXPECT_EQ(Printed([] { print("hidden"); }), "");
}

TEST_F(Listing, OpenedWrittenMovedWrittenAgainAndReset) {
  TempDir first, second;
  ASSERT_EQ(setenv("ZMR_QST_OUT", first.path().c_str(), 1), 0);
  EXPECT_EQ(Name(), "");
  SetKytTraces();
  unsetenv("ZMR_QST_OUT");
  ASSERT_NE(LS::GetDescriptor(), kClosed);
  EXPECT_STREQ(LS::GetDirectory(), first.path().c_str());
  const std::string name = Name();
  EXPECT_EQ(name.rfind("KytaniSolverLog_", 0), 0u) << name;
  EXPECT_EQ(list_folder(first.path()), std::vector<std::string>{name});
  EXPECT_EQ(Printed([] {
              print("first line");
              const int count = 3;
              ehprini("count: ", &count, 7);
              const double x = 2.5;
              ehprinr("x=%5.2f", &x, 7);
            }),
            "");
  const std::string before = "first line\ncount: 3\n\n\nx= 2.50\n\n";
  EXPECT_EQ(read_file(first / name), before);

  // The same folder again: nothing changes, the same descriptor stays.
  const unsigned int descriptor = LS::GetDescriptor();
  EXPECT_EQ(LS::Set(Text(first.path().c_str())), 0);
  EXPECT_EQ(LS::GetDescriptor(), descriptor);
  EXPECT_EQ(list_folder(first.path()).size(), 1u);

  // Moved: the text so far goes along, the name is kept, later text lands in the new file.
  EXPECT_EQ(LS::Set(Text(second.path().c_str())), 0);
  EXPECT_STREQ(LS::GetDirectory(), second.path().c_str());
  EXPECT_EQ(Name(), name);
  EXPECT_TRUE(list_folder(first.path()).empty());
  EXPECT_EQ(Printed([] { print("after the move"); }), "");
  EXPECT_EQ(read_file(second / name), before + "after the move\n");

  EXPECT_EQ(LS::Reset(), 0);
  EXPECT_EQ(LS::GetDescriptor(), kClosed);
  EXPECT_EQ(Name(), "");
  EXPECT_STREQ(LS::GetDirectory(), "");
  EXPECT_EQ(Printed([] { print("closed"); }), "closed\n");
  EXPECT_EQ(read_file(second / name), before + "after the move\n");
}

// Refusals from closed leave it closed: bad folders, then each injected platform failure.
TEST_F(Listing, FailuresOfSetFromClosedLeaveItClosed) {
  TempDir dir;
  const struct {
    const char *folder;  // null: the temporary folder
    Op op;
    int nth, low;  // low 16 bits of the expected status
  } cases[] = {
      {"", Op::Count, 0, 0x57},  // E_INVALIDARG
      {"/nonexistent/qkm/folder", Op::Count, 0, 2},
      {nullptr, Op::FileAccess, 1, 13},  // folder not readable and writable
      {nullptr, Op::MakePath, 1, 36},    // path join
      {nullptr, Op::FileAccess, 2, 13},  // existence test answers other than "no such file"
      {nullptr, Op::FOpen, 1, 13},
  };
  for (const auto &c : cases) {
    qor::fault::reset();
    if (c.op != Op::Count) qor::fault::fail_at(c.op, c.nth);
    const int status = LS::Set(Text(c.folder != nullptr ? c.folder : dir.path().c_str()));
    EXPECT_LT(status, 0) << static_cast<int>(c.op);
    EXPECT_EQ(status & 0xFFFF, c.low) << static_cast<int>(c.op);
    EXPECT_EQ(LS::GetDescriptor(), kClosed);
    EXPECT_EQ(Name(), "");
    EXPECT_TRUE(list_folder(dir.path()).empty());
  }
  qor::fault::reset();
  EXPECT_EQ(LS::Set(Text("")), static_cast<int>(0x80070057u));

  // From open: an empty folder or an occupied name changes nothing.
  TempDir second;
  ASSERT_EQ(LS::Set(Text(dir.path().c_str())), 0);
  const std::string name = Name();
  const unsigned int descriptor = LS::GetDescriptor();
  EXPECT_EQ(LS::Set(Text("")), static_cast<int>(0x80070057u));
  write_file(second / name, "someone else's\n");
  EXPECT_EQ(LS::Set(Text(second.path().c_str())), static_cast<int>(0x80070050u));
  EXPECT_EQ(LS::GetDescriptor(), descriptor);
  EXPECT_STREQ(LS::GetDirectory(), dir.path().c_str());
  print("still here");
  EXPECT_EQ(read_file(dir / name), "still here\n");
  EXPECT_EQ(read_file(second / name), "someone else's\n");
}

TEST_F(Listing, FailuresOfAMoveBeforeTheCloseLeaveTheListingWhereItWas) {
  TempDir first, second;
  ASSERT_EQ(LS::Set(Text(first.path().c_str())), 0);
  const std::string name = Name();
  const Text target(second.path().c_str());
  const std::pair<Op, int> cases[] = {
      {Op::FileAccess, 1}, {Op::IdenticalFile, 1}, {Op::MakePath, 1},
      {Op::FileAccess, 2}, {Op::MakePath, 2},  // the old file's path
      {Op::FClose, 1},     // the close did not happen: the open file goes on
  };
  for (const auto &[op, nth] : cases) {
    qor::fault::reset();
    qor::fault::fail_at(op, nth);
    EXPECT_LT(LS::Set(target), 0) << static_cast<int>(op) << " " << nth;
    EXPECT_STREQ(LS::GetDirectory(), first.path().c_str());
    EXPECT_EQ(Name(), name);
    EXPECT_TRUE(list_folder(second.path()).empty());
  }
  qor::fault::reset();
  print("still in the first folder");
  EXPECT_EQ(read_file(first / name), "still in the first folder\n");
  EXPECT_EQ(LS::Set(target), 0);
  EXPECT_EQ(read_file(second / name), "still in the first folder\n");
}

TEST_F(Listing, FailuresAfterTheCloseLeaveAStaleListingThatPrintsToStandardOutput) {
  const struct {
    Op op;
    bool old_kept, new_made;
  } cases[] = {{Op::FCopy, true, false}, {Op::DeleteFile, true, true}, {Op::FOpen, false, true}};
  for (const auto &c : cases) {
    TempDir first, second;
    Forget();
    ASSERT_EQ(LS::Set(Text(first.path().c_str())), 0);
    const std::string name = Name();
    print("text so far");
    qor::fault::fail_at(c.op, 1);
    EXPECT_LT(LS::Set(Text(second.path().c_str())), 0);
    // Not repaired: the closed descriptor and the old names stay.
    EXPECT_NE(LS::GetDescriptor(), kClosed);
    EXPECT_STREQ(LS::GetDirectory(), first.path().c_str());
    EXPECT_EQ(exists(first / name), c.old_kept) << static_cast<int>(c.op);
    EXPECT_EQ(exists(second / name), c.new_made) << static_cast<int>(c.op);
    if (c.new_made) EXPECT_EQ(read_file(second / name), "text so far\n");
    // The capture file may take the dead number; either way the put reaches the capture
    // (standard output) and neither listing file.
    EXPECT_EQ(Printed([] { print("lost listing"); }), "lost listing\n");
    if (c.old_kept) EXPECT_EQ(read_file(first / name), "text so far\n");
    EXPECT_LT(LS::Reset(), 0);  // the close of a dead descriptor fails: still stale
    EXPECT_NE(LS::GetDescriptor(), kClosed);
    Forget();
  }
}

TEST_F(Listing, ResetWithAFailingCloseKeepsTheListingOpen) {
  qor::fault::fail_at(Op::FClose, 1);
  EXPECT_EQ(LS::Reset(), 0);  // no listing: no platform call
  EXPECT_TRUE(qor::fault::should_fail(Op::FClose));  // still armed: never asked
  TempDir dir;
  ASSERT_EQ(LS::Set(Text(dir.path().c_str())), 0);
  qor::fault::fail_at(Op::FClose, 1);
  const int status = LS::Reset();
  EXPECT_LT(status, 0);
  EXPECT_EQ(status & 0xFFFF, 5);
  EXPECT_NE(LS::GetDescriptor(), kClosed);
  print("open still");
  EXPECT_EQ(read_file(dir / Name()), "open still\n");
  EXPECT_EQ(LS::Reset(), 0);
  EXPECT_EQ(LS::GetDescriptor(), kClosed);
}

TEST_F(Listing, FileNamePiecesAndTheirFallbacks) {
  char login_text[37] = {0};
  ASSERT_EQ(QORGetLoginName(login_text, 36), 0);
  QORSystemInfo info;
  ASSERT_EQ(QORGetSystemInfo(&info), 0);
  auto quoted = [](const std::string &s) {
    return std::regex_replace(s, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
  };
  const std::string login = quoted(login_text), host = quoted(info.HostName);
  const std::string time = "d[0-9]{3}_h[0-9]{2}m[0-9]{2}_";
  const std::string uuid =
      "[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}\\.txt";
  const std::pair<Op, std::string> cases[] = {
      {Op::Count, login + "_" + host + "_" + time},  // nothing fails
      {Op::LoginName, "UnknownUser_" + host + "_" + time},
      {Op::SystemInfo, login + "_UnknownHost_" + time},
      {Op::Time, login + "_" + host + "_UnknownTime_"},
  };
  Text previous;
  for (const auto &[op, middle] : cases) {
    qor::fault::reset();
    if (op != Op::Count) qor::fault::fail_at(op, 1);
    Text name("previous text is overwritten");
    LS::ComputeFileName(name);
    const char *got = name;
    EXPECT_TRUE(std::regex_match(got, std::regex("KytaniSolverLog_" + middle + uuid))) << got;
    EXPECT_NE(name, previous);  // a fresh UUID each time
    previous = name;
  }
}

}  // namespace
