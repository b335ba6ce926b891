// Stopwatch laps (generous bounds) and the date text.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>
#include <thread>

#include "QORKytTimer.h"

// The date is taken from time(); the date test moves the clock to chosen instants. Inert
// unless set: every other caller in the process sees the real time.
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

TEST(Timer, ProcessorAndElapsedTimeOfLaps) {
  QORKytTimer t;
  t.Stop();  // without a start: nothing
  EXPECT_EQ(t.GetCPU(), 0.0);
  EXPECT_EQ(t.GetElapsed(), 0.0);
  t.Start();
  burn_cpu(0.15);
  t.Stop();
  EXPECT_GE(t.GetCPU(), 0.1);
  EXPECT_LT(t.GetCPU(), 5.0);
  EXPECT_GE(t.GetElapsed(), 0.1);

  QORKytTimer idle;  // sleeping counts as elapsed time only
  idle.Start();
  sleep_ms(120);
  idle.Stop();
  EXPECT_GE(idle.GetElapsed(), 0.1);
  EXPECT_LT(idle.GetElapsed(), 5.0);
  EXPECT_LT(idle.GetCPU(), 0.06);

  QORKytTimer children;  // children waited for are counted
  children.Start();
  const pid_t pid = fork();
  if (pid == 0) {
    burn_cpu(0.15);
    _exit(0);
  }
  ASSERT_GT(pid, 0);
  int status = 0;
  waitpid(pid, &status, 0);
  children.Stop();
  EXPECT_GE(children.GetCPU(), 0.1);
}

TEST(Timer, LapsAddUpPausesDoNotAndResetDropsTheLap) {
  QORKytTimer t;
  t.Start();
  sleep_ms(40);
  t.Stop();
  const double first = t.GetElapsed();
  EXPECT_GE(first, 0.04);
  sleep_ms(400);
  EXPECT_EQ(t.GetElapsed(), first);  // stopped: the sum does not move
  t.Start();
  const double e1 = t.GetElapsed();  // readings during a lap grow; the lap goes on
  sleep_ms(20);
  t.Start();  // a second start keeps the lap
  burn_cpu(0.02);
  const double e2 = t.GetElapsed(), c2 = t.GetCPU();
  EXPECT_GE(e1, first);
  EXPECT_GE(e2, first + 0.02);
  EXPECT_GT(c2, 0.0);
  sleep_ms(30);
  t.Stop();  // the whole lap is added once
  EXPECT_GE(t.GetElapsed(), e2 + 0.03);
  EXPECT_LT(t.GetElapsed(), 0.4);
  EXPECT_GE(t.GetCPU(), c2);

  t.Start();
  sleep_ms(30);
  t.Reset();  // during a lap: dropped, and stopped
  EXPECT_EQ(t.GetElapsed(), 0.0);
  EXPECT_EQ(t.GetCPU(), 0.0);
  sleep_ms(20);
  t.Stop();
  EXPECT_EQ(t.GetElapsed(), 0.0);
  t.Start();
  sleep_ms(30);
  t.Stop();
  EXPECT_GE(t.GetElapsed(), 0.03);
  EXPECT_LT(t.GetElapsed(), 5.0);
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

std::string date_at(time_t when) {
  g_fake_now = when;
  char *text = nullptr;
  KytGetDate(text);
  g_fake_now = 0;
  std::string got = text != nullptr ? text : "(null)";
  delete[] text;
  return got;
}

TEST(KytGetDate, ExactShape) {
  // 2026-01-09 12:03:07 UTC: in every time zone a day of the year below 100.
  const time_t jan = 1767960187;
  const std::string got = date_at(jan);
  EXPECT_EQ(got, expected_date(jan));
  EXPECT_NE(got.find(" Day : 00"), std::string::npos) << got;
  EXPECT_EQ(got.size(), 43u);
  // 2026-11-14 09:41:07 UTC: a three-digit day; the shared structure keeps the increment.
  const time_t nov = 1794649267;
  struct tm *shared = localtime(&nov);
  const int yday = shared->tm_yday;
  EXPECT_EQ(date_at(nov), expected_date(nov));
  EXPECT_EQ(shared->tm_yday, yday + 1);
  // The real clock gives the same shape.
  const time_t before = time(nullptr);
  const std::string now = date_at(0);
  EXPECT_TRUE(now == expected_date(before) || now == expected_date(time(nullptr))) << now;
}

}  // namespace
