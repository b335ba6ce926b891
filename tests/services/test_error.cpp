// Error objects: severity search and fallback, printed blocks in a real listing, the log
// callback, which objects end their own lifetime, and parameter numbering.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "QORKytError.h"
#include "QORKytListing.h"
#include "kernels.h"
#include "platform/object_count.h"
#include "services/capture.h"

namespace {

using qkm_test::TempDir;
using LS = QORKytListingServices;
using E = QORKytTypeEncapError;

const std::string kInternal = "\n**************** INTERNAL ERROR ***************\n";
const std::string kError = "\n******************** ERROR ********************\n";
const std::string kWarning = "\n******************* WARNING *******************\n";
const std::string kInformation = "\n***************** INFORMATION *****************\n";
const std::string kUnknown = "\n******************* UNKNOWN ********************\n";
const std::string kClosing = "\n***********************************************\n\n";

const char kCatalog[] = R"(// catalog of the error tests
ERR_0001.Request = "Internal";
ERR_0001.Diagnostic = "Internal diagnostic";
ERR_0001.Advice = "/p1";
ERR_0042.Diagnostic = "error only /p1";
WARN_0043.Diagnostic = "warning only /p1";
INFO_0044.Diagnostic = "information only";
ERR_0045.Diagnostic = "both, as error";
WARN_0045.Diagnostic = "both, as warning";
ERR_0050.Diagnostic = "i1=/p1 i2=/p2 i3=/p3 r1=/p11 r2=/p12 s1=/p21 s2=/p22";
ERR_0051.Request = "request";
ERR_0051.Advice = "advice only: not found by the search";
)";

std::vector<std::string> g_log;  // severity, identifier and type of each logged error
void record(QORKytError *e) {
  g_log.push_back(std::to_string(e->GetSeverity()) + " " + e->GetMsgId() + " " +
                  std::to_string(e->GetInformationOnErrorType()));
}

class Errors : public ::testing::Test {
 protected:
  void SetUp() override {
    qkm_test::write_file(catalogs_ / "TestCatalog.nls", kCatalog);
    setenv("QOR_MESSAGE_CATALOG_PATH", catalogs_.path().c_str(), 1);
    unsetenv("NoKytCallStack");
    ASSERT_EQ(LS::Set(QORUnicodeString(listing_.path().c_str())), 0);
    path_ = listing_ / static_cast<const char *>(LS::GetFileName());
    g_log.clear();
    SetErrorLog(record);
    alive_ = qor::objects::alive();
  }
  void TearDown() override {
    SetErrorLog(nullptr);
    LS::Reset();
    unsetenv("QOR_MESSAGE_CATALOG_PATH");
  }
  // The text printed to the listing since the last call.
  std::string Printed() {
    const std::string all = qkm_test::read_file(path_);
    std::string fresh = all.substr(seen_);
    seen_ = all.size();
    return fresh;
  }
  static void Make(bool warning, int code, const char *catalog, std::vector<E> p) {
    p.resize(9, E::EmptyEncapEr);
    (warning ? QORKytErrorTools::CreateWarning : QORKytErrorTools::CreateError)(
        code, catalog, p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], p[8]);
  }
  static void Error(int code, const char *catalog, std::vector<E> p = {}) {
    Make(false, code, catalog, std::move(p));
  }
  static void Warning(int code, const char *catalog, std::vector<E> p = {}) {
    Make(true, code, catalog, std::move(p));
  }
  long Alive() const { return qor::objects::alive() - alive_; }

  TempDir catalogs_, listing_;
  std::string path_;
  size_t seen_ = 0;
  long alive_ = 0;
};

TEST_F(Errors, SeveritySearchLogAndLifetime) {
  Error(42, "TestCatalog", {E(1)});
  EXPECT_EQ(Printed(), kError + "error only 1" + kClosing);
  Error(43, "TestCatalog", {E(2)});
  EXPECT_EQ(Printed(), kWarning + "warning only 2" + kClosing);
  Warning(42, "TestCatalog", {E(3)});  // asked as a warning, found as an error
  EXPECT_EQ(Printed(), kError + "error only 3" + kClosing);
  Warning(45, "TestCatalog");  // ERR before WARN
  EXPECT_EQ(Printed(), kError + "both, as error" + kClosing);
  EXPECT_EQ(Alive(), 0);  // errors and warnings release themselves
  EXPECT_EQ(g_log, (std::vector<std::string>{"1 ERR_0042 0", "2 WARN_0043 3", "1 ERR_0042 0",
                                             "1 ERR_0045 0"}));
  // Information is printed, not logged, and stays allocated for good.
  Error(44, "TestCatalog");
  EXPECT_EQ(Printed(), kInformation + "information only" + kClosing);
  EXPECT_EQ(g_log.size(), 4u);
  EXPECT_EQ(Alive(), 1);

  // The call-stack switch changes nothing visible.
  setenv("NoKytCallStack", "1", 1);
  Error(42, "TestCatalog", {E(1)});
  EXPECT_EQ(Printed(), kError + "error only 1" + kClosing);
  EXPECT_EQ(Alive(), 1);

  void *cb = nullptr;
  GetErrorLog(&cb);
  EXPECT_EQ(cb, reinterpret_cast<void *>(&record));
  SetErrorLog(nullptr);
  GetErrorLog(&cb);
  EXPECT_EQ(cb, nullptr);
  Error(42, "TestCatalog", {E(1)});
  EXPECT_EQ(g_log.size(), 5u);
  EXPECT_EQ(Printed(), kError + "error only 1" + kClosing);

  // PrintMsgError prints nothing anywhere.
  qkm_test::StdoutCapture out;
  QORKytError e("ERR_0042", "TestCatalog");
  e.PrintMsgError(1, QORUnicodeString("routine"), 2);
  EXPECT_EQ(out.text(), "");
  EXPECT_EQ(Printed(), "");
}

TEST_F(Errors, AMissingNumberBecomesTheInternalErrorNamingCatalogAndNumber) {
  Error(77, "TestCatalog", {E(5)});
  EXPECT_EQ(Printed(), kInternal +
                           "Internal\nInternal diagnostic\nMessage not found\nCatalog: "
                           "TestCatalog\nIdentifier: 77" +
                           kClosing);
  Error(51, "TestCatalog");  // a message with no Diagnostic is not found either
  EXPECT_NE(Printed().find("Identifier: 51"), std::string::npos);
  EXPECT_EQ(Alive(), 0);
  ASSERT_EQ(g_log.size(), 2u);
  EXPECT_EQ(g_log[0], "0 ERR_0001 0");

  // Internal errors from a text and from ehrprog.
  QORKytErrorTools::Create("pivot vanished");
  std::string text = Printed();
  EXPECT_EQ(text.rfind(kInternal, 0), 0u);
  EXPECT_NE(text.find("\npivot vanished\n"), std::string::npos) << text;
  char field[100];
  std::memset(field, 'a', sizeof field);  // not terminated: only 80 bytes are read
  const int code = 12;
  int status = 0;
  EXPECT_EQ(ehrprog(&code, field, &status, 80), 1);
  EXPECT_EQ(status, 1);
  text = Printed();
  EXPECT_NE(text.find("Parameter: 12\n" + std::string(80, 'a') + kClosing), std::string::npos)
      << text;
  EXPECT_EQ(text.find(std::string(81, 'a')), std::string::npos);
  EXPECT_EQ(Alive(), 0);
  EXPECT_EQ(g_log.size(), 4u);
}

TEST_F(Errors, ParametersAreNumberedWithinTheirKind) {
  E single;  // a single-precision real never reaches the message
  static_cast<QORKytTypeEncap &>(single) = QORKytTypeEncap(9.5f);
  ASSERT_FALSE(single.IsEmpty());
  Error(50, "TestCatalog", {E("first text"), single, E(7), E(0.25), E(-3)});
  EXPECT_EQ(Printed(), kError + "i1=7 i2=-3 i3= r1=0.25 r2= s1=first text s2=" + kClosing);
  Error(50, "TestCatalog", {E(1), E(2), E(3), E(4), E(5), E(6), E(7), E(8), E(1e-5)});
  EXPECT_EQ(Printed(), kError + "i1=1 i2=2 i3=3 r1=1e-05 r2= s1= s2=" + kClosing);

  // The memory manager's messages, in its catalog and (free function) the solver's default.
  Error(302, "QORKYTMathKernelError", {E(2048), E(1024)});
  std::string text = Printed();
  EXPECT_EQ(text.rfind(kError, 0), 0u);
  EXPECT_NE(text.find("2048 KB"), std::string::npos) << text;
  EXPECT_NE(text.find("1024 KB"), std::string::npos) << text;
  Warning(300, "QORKYTMathKernelError", {E(640)});
  EXPECT_EQ(Printed().rfind(kWarning, 0), 0u);
  CreateKytaniError(302, E(10), E(5), E::EmptyEncapEr, E::EmptyEncapEr, E::EmptyEncapEr,
                    E::EmptyEncapEr, E::EmptyEncapEr, E::EmptyEncapEr, E::EmptyEncapEr);
  text = Printed();
  EXPECT_EQ(text.rfind(kError, 0), 0u);
  EXPECT_NE(text.find("10 KB"), std::string::npos) << text;
}

TEST_F(Errors, ArrayFormUnsetSeverityCloneAndThrowing) {
  auto *e = new QORKytError("ERR_0042", "TestCatalog");
  EXPECT_EQ(e->GetSeverity(), -1);
  e->AddRef();  // keep it past Activate to read it
  e->Print();   // a severity not yet looked up shows as UNKNOWN
  EXPECT_EQ(Printed(), kUnknown + "error only " + kClosing);
  QORUnicodeString params[25];
  params[0] = "p-one";
  e->CreateKytaniError(42, nullptr, params);
  EXPECT_EQ(Printed(), kError + "error only p-one" + kClosing);
  EXPECT_EQ(e->GetSeverity(), 1);
  EXPECT_EQ(e->GetRefCount(), 1u);
  for (const char *kind : {"QORKytError", "QORResourceError", "QORError", "QORBaseUnknown"})
    EXPECT_TRUE(e->IsAKindOf(kind)) << kind;

  QORError *clone = e->CloneSelf();
  ASSERT_NE(clone, e);
  EXPECT_EQ(static_cast<QORKytError *>(clone)->GetSeverity(), 1);
  EXPECT_STREQ(clone->GetMsgId(), "ERR_0042");
  EXPECT_EQ(clone->GetRefCount(), 1u);
  clone->Release();
  try {
    e->raise();
    ADD_FAILURE() << "raise returned";
  } catch (const QORError::ThrowSmartPtr &p) {
    EXPECT_EQ(p.Get(), e);
    EXPECT_EQ(e->GetRefCount(), 2u);  // the travelling pointer holds one reference
  }
  EXPECT_EQ(e->GetRefCount(), 1u);
  try {
    e->raise_ptr();
    ADD_FAILURE() << "raise_ptr returned";
  } catch (QORKytError *p) {
    EXPECT_EQ(p, e);
  }
  e->Release();
  EXPECT_EQ(Alive(), 0);
}

}  // namespace
