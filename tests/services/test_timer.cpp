// Stopwatch laps and the date text.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>

#include "QORKytTimer.h"

// The date is taken from time(); these tests move the clock to chosen instants. Inert unless
// set: every other caller in the process sees the real time.
namespace {
time_t g_fake_now = 0;
}
extern "C" time_t time(time_t *out) {
  time_t now = g_fake_now;
  if (now == 0) {
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    now = ts.tv_sec;
  }
  if (out != nullptr) *out = now;
  return now;
}

namespace {

void sleep_ms(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// Spins until the process has used `seconds` of processor time.
void burn_cpu(double seconds) {
  const clock_t start = std::clock();
  volatile double sink = 0.0;
  while (static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC < seconds)
    for (int i = 0; i < 10000; ++i) sink = sink + 1.0;
}

TEST(Timer, StopWithoutStartLeavesZero) {
  QORKytTimer t;
  t.Stop();
  EXPECT_EQ(t.GetCPU(), 0.0);
  EXPECT_EQ(t.GetElapsed(), 0.0);
}

TEST(Timer, BusyLapCountsProcessorTimeSleepingLapDoesNot) {
  QORKytTimer busy;
  busy.Start();
  burn_cpu(0.15);
  busy.Stop();
  EXPECT_GE(busy.GetCPU(), 0.1);
  EXPECT_LT(busy.GetCPU(), 5.0);
  EXPECT_GE(busy.GetElapsed(), 0.1);

  QORKytTimer idle;
  idle.Start();
  sleep_ms(120);
  idle.Stop();
  EXPECT_GE(idle.GetElapsed(), 0.1);
  EXPECT_LT(idle.GetElapsed(), 5.0);
  EXPECT_LT(idle.GetCPU(), 0.06);
}

TEST(Timer, ChildrenWaitedForAreCounted) {
  QORKytTimer t;
  t.Start();
  const pid_t pid = fork();
  if (pid == 0) {
    burn_cpu(0.15);
    _exit(0);
  }
  ASSERT_GT(pid, 0);
  int status = 0;
  waitpid(pid, &status, 0);
  t.Stop();
  EXPECT_GE(t.GetCPU(), 0.1);
}

TEST(Timer, LapsAddUpAndThePauseIsNotCounted) {
  QORKytTimer t;
  t.Start();
  sleep_ms(40);
  t.Stop();
  const double first = t.GetElapsed();
  EXPECT_GE(first, 0.04);
  sleep_ms(400);
  EXPECT_EQ(t.GetElapsed(), first);  // stopped: the sum does not move
  t.Start();
  sleep_ms(40);
  t.Stop();
  EXPECT_GE(t.GetElapsed(), first + 0.04);
  EXPECT_LT(t.GetElapsed(), 0.4);
}

TEST(Timer, SecondStartKeepsTheFirstLap) {
  QORKytTimer t;
  t.Start();
  sleep_ms(60);
  t.Start();
  sleep_ms(60);
  t.Stop();
  EXPECT_GE(t.GetElapsed(), 0.12);
}

TEST(Timer, ReadingsDuringALapGrowAndTheLapGoesOn) {
  QORKytTimer t;
  t.Start();
  const double e1 = t.GetElapsed();
  burn_cpu(0.05);
  sleep_ms(30);
  const double e2 = t.GetElapsed();
  const double c2 = t.GetCPU();
  EXPECT_GT(e2, e1);
  EXPECT_GE(e2, 0.03);
  EXPECT_GT(c2, 0.0);
  sleep_ms(30);
  t.Stop();  // still running: the whole lap is added once
  EXPECT_GE(t.GetElapsed(), e2 + 0.03);
  EXPECT_LT(t.GetElapsed(), 2 * e2 + 5.0);
  EXPECT_GE(t.GetCPU(), c2);
}

TEST(Timer, ResetDuringALapDropsItAndStops) {
  QORKytTimer t;
  t.Start();
  sleep_ms(30);
  t.Stop();
  t.Start();
  sleep_ms(30);
  t.Reset();
  EXPECT_EQ(t.GetElapsed(), 0.0);
  EXPECT_EQ(t.GetCPU(), 0.0);
  sleep_ms(20);
  t.Stop();
  EXPECT_EQ(t.GetElapsed(), 0.0);
  t.Start();
  sleep_ms(30);
  t.Stop();
  EXPECT_GE(t.GetElapsed(), 0.03);
  EXPECT_LT(t.GetElapsed(), 0.06 + 5.0);
}

// The expected text of instant `when`, built independently from the local calendar.
std::string expected_date(time_t when) {
  struct tm local;
  localtime_r(&when, &local);
  char buf[80];
  std::snprintf(buf, sizeof buf, "Year : %04d Day : %03d Hour : %02d h %02d m %02d s",
                local.tm_year + 1900, local.tm_yday + 1, local.tm_hour, local.tm_min,
                local.tm_sec);
  return buf;
}

struct FakeNow {
  explicit FakeNow(time_t t) { g_fake_now = t; }
  ~FakeNow() { g_fake_now = 0; }
};

TEST(KytGetDate, ShapeWithLeadingZeros) {
  // 2026-01-09 12:03:07 UTC: in every time zone a day of the year below 100.
  const time_t jan = 1767960187;
  FakeNow fake(jan);
  char *text = nullptr;
  KytGetDate(text);
  ASSERT_NE(text, nullptr);
  const std::string got(text);
  delete[] text;
  EXPECT_EQ(got, expected_date(jan));
  EXPECT_NE(got.find(" Day : 00"), std::string::npos) << got;
  EXPECT_EQ(got.size(), 43u);
}

TEST(KytGetDate, ThreeDigitDayAndSharedStructureKeepsTheIncrement) {
  // 2026-11-14 09:41:07 UTC.
  const time_t nov = 1794649267;
  FakeNow fake(nov);
  struct tm *shared = localtime(&nov);
  const int yday = shared->tm_yday;
  char *text = nullptr;
  KytGetDate(text);
  const std::string got(text);
  delete[] text;
  EXPECT_EQ(got, expected_date(nov));
  EXPECT_EQ(got.substr(0, 7), "Year : ");
  EXPECT_EQ(shared->tm_yday, yday + 1);
}

TEST(KytGetDate, RealClockGivesTheSameShape) {
  const time_t before = time(nullptr);
  char *text = nullptr;
  KytGetDate(text);
  const time_t after = time(nullptr);
  const std::string got(text);
  delete[] text;
  EXPECT_TRUE(got == expected_date(before) || got == expected_date(after)) << got;
}

}  // namespace
