// The message-catalog reader: the format, parameters, the search path, and malformed files
// that must never crash it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>

#include "QORError.h"
#include "platform/nls.h"
#include "services/capture.h"

namespace {

using qkm_test::TempDir;
using qkm_test::write_file;
using qor::nls::fill;
using qor::nls::parse;

TEST(Catalog, FormatEscapesAndMalformedLines) {
  const auto c = parse(
      "\xEF\xBB\xBF// a comment line after a byte-order mark\n"
      "  ERR_0007.Request = \"two\\nlines\";   // trailing comment\n"
      "ERR_0007.Diagnostic=\"say \\\"hi\\\" \\\\ \\t tab\";\r\n\n"
      "ERR_0007.Advice = \"first\";\nERR_0007.Advice = \"second wins\";\n"
      "INFO_0001.Diagnostic = \"\\q stays\";\n"
      "NOSEMI.Diagnostic = \"no semicolon\"\n"
      "BIN.Diagnostic = \"\x01\xff\xfe bytes\";\n"
      "TRUNC.Diagnostic = \"no closing quote\nNOQUOTE.Diagnostic = bare words;\n"
      "UNKNOWN.Title = \"unknown field\";\nNOFIELD = \"no field\";\n.Diagnostic = \"no key\";\n"
      "JUNK.Diagnostic = \"text\" trailing junk;\nNOEQ.Diagnostic \"no equals\";\n" +
      std::string("NUL.Diagnostic = \"a\0b\";\n", 24) + "LAST.Advice = \"no newline at the end\";");
  ASSERT_EQ(c.size(), 5u);
  const auto &m = c.at("ERR_0007");
  EXPECT_EQ(m.request, "two\nlines");
  EXPECT_EQ(m.diagnostic, "say \"hi\" \\ \t tab");
  EXPECT_EQ(m.advice, "second wins");
  EXPECT_EQ(c.at("INFO_0001").diagnostic, "\\q stays");
  EXPECT_EQ(c.at("NOSEMI").diagnostic, "no semicolon");
  EXPECT_EQ(c.at("BIN").diagnostic, "\x01\xff\xfe bytes");
  EXPECT_EQ(c.at("LAST").advice, "no newline at the end");

  // Very long lines and random bytes never crash it, nor leave an empty key.
  const std::string long_text(1 << 20, 'x');
  auto l = parse("LONG.Diagnostic = \"" + long_text + "\";\n" + std::string(300000, '"') +
                 "\nAFTER.Diagnostic = \"still read\";\n");
  EXPECT_EQ(l.at("LONG").diagnostic.size(), long_text.size());
  EXPECT_EQ(l.at("AFTER").diagnostic, "still read");
  std::mt19937 gen(12345);
  const char letters[] = "ERR_01.Diagnostic=\" ;/\\\n\r\t\x00\xff";
  const std::string alphabet(letters, sizeof letters - 1);
  for (int round = 0; round < 200; ++round) {
    std::string text(gen() % 400, ' ');
    for (char &ch : text)
      ch = (gen() % 4 == 0) ? static_cast<char>(gen() & 0xFF) : alphabet[gen() % alphabet.size()];
    for (const auto &[key, msg] : parse(text)) EXPECT_FALSE(key.empty());
  }
}

TEST(Catalog, ParameterPositions) {
  std::vector<std::string> p(25);
  for (int i = 0; i < 25; ++i) p[i] = "<" + std::to_string(i + 1) + ">";
  EXPECT_EQ(fill("/p1 /p10 /p11 /p21 /p25", p), "<1> <10> <11> <21> <25>");
  EXPECT_EQ(fill("/p26 /p30 /p0 /p /px", p), "<2>6 <3>0 /p0 /p /px");
  EXPECT_EQ(fill("/p9/p1", p), "<9><1>");
  EXPECT_EQ(fill("/p3 and /p22", {"a"}), " and ");  // missing values are empty
  EXPECT_EQ(fill("trailing /p", p), "trailing /p");
}

TEST(Catalog, PathFoldersInOrderThenTheBuildTree) {
  TempDir a, b;
  write_file(a / "Mine.nls", "M.Diagnostic = \"from a\";\n");
  write_file(b / "Mine.nls", "M.Diagnostic = \"from b\";\n");
  write_file(b / "Other.nls", "O.Diagnostic = \"only in b\";\n");
  const std::string path = "::" + a.path() + ":/nonexistent:" + b.path() + ":";
  setenv("QOR_MESSAGE_CATALOG_PATH", path.c_str(), 1);
  qor::nls::Message m;
  ASSERT_TRUE(qor::nls::lookup("Mine", "M", m));
  EXPECT_EQ(m.diagnostic, "from a");
  ASSERT_TRUE(qor::nls::lookup("Other", "O", m));
  EXPECT_EQ(m.diagnostic, "only in b");
  EXPECT_FALSE(qor::nls::lookup("Mine", "NOPE", m));
  EXPECT_FALSE(qor::nls::lookup("Missing", "M", m));
  EXPECT_FALSE(qor::nls::lookup("../etc/passwd", "M", m));
  unsetenv("QOR_MESSAGE_CATALOG_PATH");  // the library's own are found without a setting
  for (const char *name : {"QORKytaniError", "QORKYTMathKernelError"}) {
    ASSERT_TRUE(qor::nls::lookup(name, "ERR_0302", m)) << name;
    EXPECT_FALSE(m.diagnostic.empty());
    EXPECT_TRUE(qor::nls::lookup(name, "WARN_0300", m)) << name;
    ASSERT_TRUE(qor::nls::lookup(name, "ERR_0001", m)) << name;
    EXPECT_NE(fill(m.request + m.diagnostic + m.advice, {"PARAM"}).find("PARAM"),
              std::string::npos) << name;
  }
}

TEST(Catalog, EachFileIsParsedOnceAndAgainOnlyAfterItChanges) {
  TempDir dir;
  write_file(dir / "Cache.nls", "A.Diagnostic = \"first\";\n");
  setenv("QOR_MESSAGE_CATALOG_PATH", dir.path().c_str(), 1);
  qor::nls::Message m;
  const unsigned long before = qor::nls::parse_count();
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(qor::nls::lookup("Cache", "A", m));
  EXPECT_FALSE(qor::nls::lookup("Cache", "B", m));
  EXPECT_EQ(qor::nls::parse_count() - before, 1u);
  QORError e("A", "Cache");  // one printed message: no further parse
  EXPECT_STREQ(e.GetNLSMessage(), "first");
  EXPECT_EQ(qor::nls::parse_count() - before, 1u);
  write_file(dir / "Cache.nls", "A.Diagnostic = \"second, longer\";\nB.Advice = \"b\";\n");
  ASSERT_TRUE(qor::nls::lookup("Cache", "A", m));
  EXPECT_EQ(m.diagnostic, "second, longer");
  EXPECT_TRUE(qor::nls::lookup("Cache", "B", m));
  EXPECT_EQ(qor::nls::parse_count() - before, 2u);
  unsetenv("QOR_MESSAGE_CATALOG_PATH");
}

TEST(Catalog, ErrorTextsUseTheirOwnParameterSets) {
  TempDir dir;
  write_file(dir / "Cat.nls",
             "E.Request = \"R /p1\";\nE.Diagnostic = \"D /p1 /p2\";\n"
             "E.Advice = \"A /p1\";\nD.Diagnostic = \"only /p1\";\n");
  setenv("QOR_MESSAGE_CATALOG_PATH", dir.path().c_str(), 1);
  QORResourceError e("E", "Cat");
  const QORUnicodeString one("1"), two("2"), adv("x"), all("*");
  e.SetNLSDiagnosticParams(2, &one, &two);
  e.SetNLSAdviceParams(1, &adv);
  EXPECT_STREQ(e.GetNLSMessage(), "R \nD 1 2\nA x");
  e.SetNLSParameters(1, &all);
  EXPECT_STREQ(e.GetNLSMessage(), "R *\nD * \nA *");
  QORError d("D", "Cat");  // empty Request and Advice are left out, with their newlines
  d.SetNLSDiagnosticParams(1, &one);
  EXPECT_STREQ(d.GetNLSMessage(), "only 1");
  QORError missing("NOPE", "Cat");  // nothing given to it is lost
  missing.SetNLSAdviceParams(2, &adv, static_cast<const QORUnicodeString *>(nullptr));
  EXPECT_STREQ(missing.GetNLSMessage(), "Cat/NOPE\nx");
  EXPECT_STREQ(missing.GetNLSDiagnostic(), "");
  unsetenv("QOR_MESSAGE_CATALOG_PATH");
}

}  // namespace
