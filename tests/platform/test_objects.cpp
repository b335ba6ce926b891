// Platform objects: text, collections, reference counting and the meta-object registry,
// traces, file operations, and the pieces of a listing's name.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <regex>
#include <set>

#include "QORCollections.h"
#include "QORError.h"
#include "QORFile.h"
#include "QORString.h"
#include "QORSystem.h"
#include "QORTrace.h"
#include "platform/object_count.h"
#include "services/capture.h"

namespace {

using namespace qkm_test;
using Text = QORUnicodeString;

TEST(Strings, BuildingJoiningCountingAndAliasing) {
  Text s("ab");
  s += "cd";
  s += s;
  EXPECT_STREQ(s, "abcdabcd");
  EXPECT_STREQ(Text("x") + "y" + Text("z"), "xyz");
  EXPECT_STREQ(Text("abc\0def", 7), "abc");  // stops at a NUL
  EXPECT_STREQ(Text("abcdef", 4), "abcd");
  const Text e("\xC3\xA9t\xC3\xA9");  // 3 characters, 5 bytes
  EXPECT_EQ(e.GetLengthInChar(), 3);
  EXPECT_EQ(e.GetLengthInByte(), 5);
  Text n;
  EXPECT_STREQ(n.BuildFromNum(-42, "Parameter: %d\n"), "Parameter: -42\n");
  Text moved(std::move(s));
  EXPECT_STREQ(s, "");  // a moved-from string still reads as empty
  s = moved.ConvertToChar() + 4;  // a piece of another string
  s = static_cast<const char *>(s) + 2;  // and a piece of itself
  EXPECT_STREQ(s, "cd");
}

TEST(Collections, OneBasedGrowingAndNeutralOutside) {
  QORRawCollint ints(0);
  QORRawColldouble reals(0);
  QORListValQORUnicodeString strings;
  for (int i = 1; i <= 100; ++i) {
    ints.Append(i * 3);
    reals.Append(i / 4.0);
    strings.Append(Text().BuildFromNum(i, "s%d"));
  }
  EXPECT_EQ(ints.Size(), 100);
  EXPECT_TRUE(ints[1] == 3 && ints[100] == 300 && reals[2] == 0.5);
  EXPECT_STREQ(strings[100], "s100");
  const QORRawCollint &ci = ints;
  EXPECT_EQ(ci[0], 0);
  EXPECT_EQ(ci[101], 0);
  EXPECT_EQ(static_cast<const QORRawColldouble &>(reals)[-5], 0.0);
  EXPECT_STREQ(static_cast<const QORListValQORUnicodeString &>(strings)[0], "");
  strings.Append(strings[1]);  // an element of the list itself, across a growth
  EXPECT_STREQ(strings[101], "s1");
  QORListValQORUnicodeString copy(strings);
  strings[1] = "changed";
  EXPECT_STREQ(copy[1], "s1");
}

TEST(Objects, ReferenceCountsAndRegistry) {
  const long alive = qor::objects::alive();
  auto *e = new QORError("ID", "Cat");
  EXPECT_EQ(e->AddRef(), 2u);
  QORError *clone = e->CloneSelf();  // copies start at one
  EXPECT_EQ(clone->GetRefCount(), 1u);
  EXPECT_STREQ(clone->GetMsgId(), "ID");
  EXPECT_EQ(e->Release(), 1u);
  EXPECT_EQ(qor::objects::alive(), alive + 2);
  EXPECT_EQ(e->Release(), 0u);
  EXPECT_EQ(clone->Release(), 0u);
  EXPECT_EQ(qor::objects::alive(), alive);

  const QORMetaClass *r = QORResourceError::MetaObject();
  EXPECT_TRUE(r->IsAKindOf("QORBaseUnknown"));
  EXPECT_FALSE(QORError::MetaObject()->IsAKindOf("QORResourceError"));
  EXPECT_EQ(QORMetaClass::Register("QORResourceError", 9, nullptr, "", "", 1), r);  // kept
  EXPECT_EQ(QORMetaClass::Find("NoSuchClass"), nullptr);
  QORResourceError re("X", "Y");
  void *itf = nullptr;
  EXPECT_EQ(re.QueryInterface("QORError", &itf), 0);
  EXPECT_EQ(itf, &re);
  re.Release();  // the reference QueryInterface added
  EXPECT_NE(re.QueryInterface("QORTrace", &itf), 0);
  EXPECT_EQ(itf, nullptr);
}

TEST(Traces, PutsSwitchedByNameAndFileDestination) {
  QORTrace t("TestTrace", "a test trace", QORTraModeDefault, "STDOUT", 16);
  StdoutCapture out;
  t.TraPut("as is");
  t.TraPutLN(" line");
  t.TraPutLN("n=", -7);
  t.TraPrint(3, "%s %05.1f|", "long enough to pass the sixteen bytes", 2.25);
  EXPECT_EQ(t.level, 3);
  QORTraControle control("TestTrace");
  control.TraPutFlg(0);
  t.TraPutLN("silenced");
  QORTrace later("TestTrace", "", QORTraModeDefault, "STDOUT", 1024);
  later.TraPutLN("also silenced");  // the switch holds for traces made later
  control.TraPutFlg(1);
  t.TraPutLN("on again");
  EXPECT_EQ(out.text(),
            "as is line\nn=-7\nlong enough to pass the sixteen bytes 002.2|on again\n");
  TempDir dir;
  QORTrace("FileTrace", "", QORTraModeDefault, (dir / "t.txt").c_str(), 1024).TraPutLN("file");
  EXPECT_EQ(read_file(dir / "t.txt"), "file\n");
}

TEST(Files, AccessPathsOpenCopyDelete) {
  TempDir dir;
  Text folder(dir.path().c_str()), path(folder), name("a.txt"), empty;
  EXPECT_EQ(_QORFileAccess(folder, 6, 0), 0);
  ASSERT_EQ(QORMakePath(&path, &name), 0);
  EXPECT_STREQ(path, (dir / "a.txt").c_str());
  Text slash((dir.path() + "/").c_str());
  ASSERT_EQ(QORMakePath(&slash, &name), 0);
  EXPECT_STREQ(slash, (dir / "a.txt").c_str());  // no doubled separator
  EXPECT_LT(QORMakePath(&slash, &empty), 0);
  EXPECT_EQ(_QORFileAccess(path, 0, 0) & 0x8000FFFF, 0x80000002);

  unsigned int fd = 0;
  for (const char *line : {"one\n", "two\n"}) {  // the second open appends
    ASSERT_EQ(QORFOpen(path, "a+c", &fd), 0);
    ASSERT_EQ(::write(static_cast<int>(fd), line, 4), 4);
    EXPECT_EQ(QORFClose(fd), 0);
  }
  EXPECT_LT(QORFClose(fd), 0);  // already closed
  EXPECT_EQ(read_file(dir / "a.txt"), "one\ntwo\n");
  EXPECT_LT(QORFOpen(Text((dir / "none").c_str()), "r", &fd), 0);
  EXPECT_LT(QORFOpen(path, "x", &fd), 0);

  const Text copy((dir / "b.txt").c_str());
  EXPECT_EQ(QORFCopy(path, copy, 0), 0);
  EXPECT_LT(QORFCopy(path, copy, 0), 0);  // exists, not to be overwritten
  write_file(dir / "b.txt", "longer old text that must go\n");
  EXPECT_EQ(QORFCopy(path, copy, 1), 0);
  EXPECT_EQ(read_file(dir / "b.txt"), "one\ntwo\n");

  Text same((dir.path() + "/.").c_str()), other("/"), gone("/nonexistent/qkm");
  EXPECT_EQ(QORIdenticaleFile(&folder, &same), 0);
  EXPECT_EQ(QORIdenticaleFile(&folder, &other), 1);
  EXPECT_LT(QORIdenticaleFile(&folder, &gone), 0);
  EXPECT_EQ(_QORDeleteFile(copy), 0);
  EXPECT_EQ(_QORDeleteFile(copy) & 0x8000FFFF, 0x80000002);
  EXPECT_EQ(_QORDeleteFile(path), 0);
}

TEST(SystemPieces, LoginHostTimeUuid) {
  char tiny[1], host[256] = {0};
  EXPECT_LT(QORGetLoginName(tiny, 1), 0);
  QORSystemInfo info;
  ASSERT_EQ(QORGetSystemInfo(&info), 0);
  ::gethostname(host, sizeof host - 1);
  EXPECT_STREQ(info.HostName, host);

  const QORTime t(static_cast<time_t>(86400 * 40 + 3600 * 5));  // 10 February 1970
  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_STREQ(t.ConvertToString("d%j_h%Hm%M_", 0), "d041_h05m00_");

  std::set<std::string> seen;
  const std::regex form("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
  for (int i = 0; i < 50; ++i) {
    char text[40];
    EXPECT_EQ(QORUuid().UUID_to_chaine(text, 37), 36);
    EXPECT_TRUE(std::regex_match(text, form)) << text;
    seen.insert(text);
  }
  EXPECT_EQ(seen.size(), 50u);
  char cut[40];
  std::memset(cut, '#', sizeof cut);
  EXPECT_EQ(QORUuid().UUID_to_chaine(cut, 8), 8);
  EXPECT_EQ(cut[8], '#');  // no room for the terminator: none written
}

}  // namespace
