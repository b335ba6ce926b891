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

using qkm_test::read_file;
using qkm_test::StdoutCapture;
using qkm_test::TempDir;
using qor::fault::Op;
using LS = QORKytListingServices;

constexpr unsigned int kClosed = 0xFFFFFFFFu;
constexpr int kInvalidArgument = static_cast<int>(0x80070057u);
constexpr int kFileExists = static_cast<int>(0x80070050u);

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
  static std::string ListingPath() {
    return std::string(LS::GetDirectory()) + "/" + static_cast<const char *>(LS::GetFileName());
  }
  static void print(const char *text) { ehprint(text, 1); }
};

TEST_F(Listing, TracesAreMadeWithTheirNamesAndDescriptions) {
  const struct {
    QORTrace *trace;
    const char *name, *description;
  } expected[] = {
      {&Tra_KYTPrint, "KYTPrint", "Kytani traces for listing"},
      {&Tra_KYTCompute, "KYTCompute", "Kytani traces for computation"},
      {&Tra_KYTDefine, "KYTDefine", "Kytani traces for definition"},
      {&Tra_KYTStorage, "KYTStorage", "Kytani traces for external storage"},
      {&Tra_KYTAcquire, "KYTAcquire", "Kytani traces for acquisition"},
      {&Tra_KYTOutput, "KYTOutput", "Kytani traces for acquisition"},
      {&Tra_KYTInfra, "KYTInfra", "Kytani traces for infrastructure"},
      {&Tra_KYTStorageLink, "KYTStorageLink", "Kytani traces for external storage links "},
      {&Tra_KYTError, "KYTError", "Kytani traces for errors"},
      {&Tra_KYTCpuElapse, "KYTCpuElapse", "Kytani traces for Cpu and Elapses"},
  };
  for (const auto &e : expected) {
    EXPECT_STREQ(e.trace->GetName(), e.name);
    EXPECT_STREQ(e.trace->GetDescription(), e.description);
    EXPECT_STREQ(e.trace->GetDestination(), "STDOUT");
  }
}

TEST_F(Listing, SetKytTracesSwitchesSixTracesAndLeavesTheOthers) {
  QORKYTTraceState("KYTInfra", 0);
  QORKYTTraceState("KYTOutput", 1);
  QORKYTTraceState("KYTCompute", 1);
  QORKYTTraceState("KYTPrint", 0);
  ASSERT_EQ(unsetenv("ZMR_QST_OUT"), 0);
  SetKytTraces();
  EXPECT_EQ(LS::GetDescriptor(), kClosed);  // no folder, no listing, nothing said
  EXPECT_TRUE(Tra_KYTPrint.IsActive());
  EXPECT_TRUE(Tra_KYTError.IsActive());
  for (QORTrace *t : {&Tra_KYTCompute, &Tra_KYTDefine, &Tra_KYTStorage, &Tra_KYTAcquire})
    EXPECT_FALSE(t->IsActive()) << t->GetName();
  EXPECT_FALSE(Tra_KYTInfra.IsActive());
  EXPECT_TRUE(Tra_KYTOutput.IsActive());
  QORKYTTraceState("KYTInfra", 1);
}

TEST_F(Listing, WithoutListingEachEntryPrintsToStandardOutput) {
  StdoutCapture out;
  print("x");
  EXPECT_TRUE(out.intact());
  const int n = 42;
  ehprini("n = ", &n, 4);
  const double v = 0.125;
  ehprinr("v = %.3f", &v, 7);
  EXPECT_TRUE(out.intact());
  EXPECT_EQ(out.text(), "x\nn = 42\n\n\nv = 0.125\n\n");
}

TEST_F(Listing, SwitchedOffPrintTraceWritesNothing) {
  QORKYTTraceState("KYTPrint", 0);
  StdoutCapture out;
  print("hidden");
  EXPECT_EQ(out.text(), "");
}

TEST_F(Listing, OpenedWrittenMovedWrittenAgainAndReset) {
  TempDir first, second;
  ASSERT_EQ(setenv("ZMR_QST_OUT", first.path().c_str(), 1), 0);
  EXPECT_STREQ(LS::GetFileName(), "");
  SetKytTraces();
  unsetenv("ZMR_QST_OUT");
  ASSERT_NE(LS::GetDescriptor(), kClosed);
  EXPECT_STREQ(LS::GetDirectory(), first.path().c_str());
  const std::string name = static_cast<const char *>(LS::GetFileName());
  EXPECT_EQ(name.rfind("KytaniSolverLog_", 0), 0u) << name;
  EXPECT_EQ(qkm_test::list_folder(first.path()), std::vector<std::string>{name});

  {
    StdoutCapture out;
    print("first line");
    EXPECT_TRUE(out.intact());
    const int count = 3;
    ehprini("count: ", &count, 7);
    EXPECT_TRUE(out.intact());
    const double x = 2.5;
    ehprinr("x=%5.2f", &x, 7);
    EXPECT_TRUE(out.intact());
    EXPECT_EQ(out.text(), "");  // nothing reached standard output
  }
  const std::string before = "first line\ncount: 3\n\n\nx= 2.50\n\n";
  EXPECT_EQ(read_file(first / name), before);

  // The same folder again: nothing changes, the same descriptor stays.
  const unsigned int descriptor = LS::GetDescriptor();
  EXPECT_EQ(LS::Set(QORUnicodeString(first.path().c_str())), 0);
  EXPECT_EQ(LS::GetDescriptor(), descriptor);
  EXPECT_EQ(qkm_test::list_folder(first.path()).size(), 1u);

  // Moved: the text so far goes along, the name is kept, later text lands in the new file.
  EXPECT_EQ(LS::Set(QORUnicodeString(second.path().c_str())), 0);
  EXPECT_STREQ(LS::GetDirectory(), second.path().c_str());
  EXPECT_EQ(std::string(LS::GetFileName()), name);
  EXPECT_TRUE(qkm_test::list_folder(first.path()).empty());
  {
    StdoutCapture out;
    print("after the move");
    EXPECT_TRUE(out.intact());
    EXPECT_EQ(out.text(), "");
  }
  EXPECT_EQ(read_file(second / name), before + "after the move\n");

  EXPECT_EQ(LS::Reset(), 0);
  EXPECT_EQ(LS::GetDescriptor(), kClosed);
  EXPECT_STREQ(LS::GetFileName(), "");
  EXPECT_STREQ(LS::GetDirectory(), "");
  StdoutCapture out;
  print("closed");
  EXPECT_EQ(out.text(), "closed\n");
  EXPECT_EQ(read_file(second / name), before + "after the move\n");
}

TEST_F(Listing, EmptyMissingAndOccupiedFolders) {
  EXPECT_EQ(LS::Set(QORUnicodeString("")), kInvalidArgument);
  EXPECT_EQ(LS::GetDescriptor(), kClosed);
  const int missing = LS::Set(QORUnicodeString("/nonexistent/qkm/folder"));
  EXPECT_LT(missing, 0);
  EXPECT_EQ(missing & 0xFFFF, 2);
  EXPECT_EQ(LS::GetDescriptor(), kClosed);

  TempDir first, second;
  ASSERT_EQ(LS::Set(QORUnicodeString(first.path().c_str())), 0);
  const std::string name = static_cast<const char *>(LS::GetFileName());
  const unsigned int descriptor = LS::GetDescriptor();
  EXPECT_EQ(LS::Set(QORUnicodeString("")), kInvalidArgument);
  EXPECT_EQ(LS::GetDescriptor(), descriptor);

  qkm_test::write_file(second / name, "someone else's\n");
  EXPECT_EQ(LS::Set(QORUnicodeString(second.path().c_str())), kFileExists);
  EXPECT_EQ(LS::GetDescriptor(), descriptor);
  EXPECT_STREQ(LS::GetDirectory(), first.path().c_str());
  print("still here");
  EXPECT_EQ(read_file(first / name), "still here\n");
  EXPECT_EQ(read_file(second / name), "someone else's\n");
}

TEST_F(Listing, ResetWithoutListingCallsNoPlatform) {
  qor::fault::fail_at(Op::FClose, 1);
  EXPECT_EQ(LS::Reset(), 0);
  EXPECT_TRUE(qor::fault::should_fail(Op::FClose));  // still armed: never asked
}

TEST_F(Listing, FailuresOfSetFromClosedLeaveItClosed) {
  TempDir dir;
  const QORUnicodeString folder(dir.path().c_str());
  const struct {
    Op op;
    int nth;
    int low;  // low 16 bits of the expected status
  } cases[] = {
      {Op::FileAccess, 1, 13},  // folder not readable and writable
      {Op::MakePath, 1, 36},    // path join
      {Op::FileAccess, 2, 13},  // existence test answers other than "no such file"
      {Op::FOpen, 1, 13},       // open
  };
  for (const auto &c : cases) {
    qor::fault::reset();
    qor::fault::fail_at(c.op, c.nth);
    const int status = LS::Set(folder);
    EXPECT_LT(status, 0) << static_cast<int>(c.op);
    EXPECT_EQ(status & 0xFFFF, c.low) << static_cast<int>(c.op);
    EXPECT_EQ(LS::GetDescriptor(), kClosed);
    EXPECT_STREQ(LS::GetFileName(), "");
    EXPECT_TRUE(qkm_test::list_folder(dir.path()).empty());
  }
  qor::fault::reset();
  EXPECT_EQ(LS::Set(folder), 0);
}

TEST_F(Listing, FailuresOfAMoveBeforeTheCloseLeaveTheListingWhereItWas) {
  TempDir first, second;
  ASSERT_EQ(LS::Set(QORUnicodeString(first.path().c_str())), 0);
  const std::string name = static_cast<const char *>(LS::GetFileName());
  const QORUnicodeString target(second.path().c_str());
  const struct {
    Op op;
    int nth;
  } cases[] = {
      {Op::FileAccess, 1}, {Op::IdenticalFile, 1}, {Op::MakePath, 1},
      {Op::FileAccess, 2}, {Op::MakePath, 2},  // the old file's path
      {Op::FClose, 1},     // the close did not happen: the open file goes on
  };
  for (const auto &c : cases) {
    qor::fault::reset();
    qor::fault::fail_at(c.op, c.nth);
    EXPECT_LT(LS::Set(target), 0) << static_cast<int>(c.op) << " " << c.nth;
    EXPECT_STREQ(LS::GetDirectory(), first.path().c_str());
    EXPECT_EQ(std::string(LS::GetFileName()), name);
    EXPECT_TRUE(qkm_test::list_folder(second.path()).empty());
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
  } cases[] = {
      {Op::FCopy, true, false},
      {Op::DeleteFile, true, true},
      {Op::FOpen, false, true},
  };
  for (const auto &c : cases) {
    TempDir first, second;
    Forget();
    ASSERT_EQ(LS::Set(QORUnicodeString(first.path().c_str())), 0);
    const std::string name = static_cast<const char *>(LS::GetFileName());
    print("text so far");
    qor::fault::fail_at(c.op, 1);
    const int status = LS::Set(QORUnicodeString(second.path().c_str()));
    EXPECT_LT(status, 0);
    // Not repaired: the closed descriptor and the old names stay.
    EXPECT_NE(LS::GetDescriptor(), kClosed);
    EXPECT_STREQ(LS::GetDirectory(), first.path().c_str());
    EXPECT_EQ(qkm_test::exists(first / name), c.old_kept) << static_cast<int>(c.op);
    EXPECT_EQ(qkm_test::exists(second / name), c.new_made) << static_cast<int>(c.op);
    if (c.new_made) EXPECT_EQ(read_file(second / name), "text so far\n");
    {
      // The capture file may take the dead number; either way the put reaches the capture
      // (standard output) and neither listing file.
      StdoutCapture out;
      print("lost listing");
      EXPECT_TRUE(out.intact());
      EXPECT_EQ(out.text(), "lost listing\n");
    }
    if (c.old_kept) EXPECT_EQ(read_file(first / name), "text so far\n");
    EXPECT_LT(LS::Reset(), 0);  // the close of a dead descriptor fails: still stale
    EXPECT_NE(LS::GetDescriptor(), kClosed);
    Forget();
  }
}

TEST_F(Listing, ResetWithAFailingCloseKeepsTheListingOpen) {
  TempDir dir;
  ASSERT_EQ(LS::Set(QORUnicodeString(dir.path().c_str())), 0);
  const std::string name = static_cast<const char *>(LS::GetFileName());
  qor::fault::fail_at(Op::FClose, 1);
  const int status = LS::Reset();
  EXPECT_LT(status, 0);
  EXPECT_EQ(status & 0xFFFF, 5);
  EXPECT_NE(LS::GetDescriptor(), kClosed);
  print("open still");
  EXPECT_EQ(read_file(dir / name), "open still\n");
  EXPECT_EQ(LS::Reset(), 0);
  EXPECT_EQ(LS::GetDescriptor(), kClosed);
}

TEST_F(Listing, FileNamePiecesAndTheirFallbacks) {
  char login[37] = {0};
  ASSERT_EQ(QORGetLoginName(login, 36), 0);
  QORSystemInfo info;
  ASSERT_EQ(QORGetSystemInfo(&info), 0);
  const std::string uuid = "[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}";
  const std::string time = "d[0-9]{3}_h[0-9]{2}m[0-9]{2}_";
  auto matches = [](const QORUnicodeString &name, const std::string &pattern) {
    return std::regex_match(static_cast<const char *>(name), std::regex(pattern));
  };
  auto quoted = [](const std::string &s) {
    return std::regex_replace(s, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
  };
  QORUnicodeString a, b;
  LS::ComputeFileName(a);
  LS::ComputeFileName(b);
  const std::string normal = "KytaniSolverLog_" + quoted(login) + "_" + quoted(info.HostName) +
                             "_" + time + uuid + "\\.txt";
  EXPECT_TRUE(matches(a, normal)) << static_cast<const char *>(a);
  EXPECT_NE(a, b);  // a fresh UUID each time

  const struct {
    Op op;
    std::string pattern;
  } cases[] = {
      {Op::LoginName, "KytaniSolverLog_UnknownUser_" + quoted(info.HostName) + "_" + time +
                          uuid + "\\.txt"},
      {Op::SystemInfo,
       "KytaniSolverLog_" + quoted(login) + "_UnknownHost_" + time + uuid + "\\.txt"},
      {Op::Time, "KytaniSolverLog_" + quoted(login) + "_" + quoted(info.HostName) +
                     "_UnknownTime_" + uuid + "\\.txt"},
  };
  for (const auto &c : cases) {
    qor::fault::reset();
    qor::fault::fail_at(c.op, 1);
    QORUnicodeString name("previous text is overwritten");
    LS::ComputeFileName(name);
    EXPECT_TRUE(matches(name, c.pattern)) << static_cast<const char *>(name);
  }
}

}  // namespace
