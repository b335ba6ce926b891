// Stopwatch laps, bounded below by what the test slept or spent and above by the same
// stretch measured independently, and the date text.
#include <gtest/gtest.h>
#include <sys/resource.h>
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

// Processor seconds of the process and its waited-for children, from getrusage.
double process_cpu() {
  double total = 0.0;
  for (int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    struct rusage ru;
    getrusage(who, &ru);
    total += ru.ru_utime.tv_sec + ru.ru_utime.tv_usec * 1e-6 + ru.ru_stime.tv_sec +
             ru.ru_stime.tv_usec * 1e-6;
  }
  return total;
}

// Spins until the process has used `seconds` of processor time.
void burn_cpu(double seconds) {
  const double start = process_cpu();
  volatile double sink = 0.0;
  while (process_cpu() - start < seconds)
    for (int i = 0; i < 10000; ++i) sink = sink + 1.0;
}

// Wall-clock and processor time measured independently around a stretch of the test. A
// timer reading taken inside the stretch can never exceed it: the upper bounds follow the
// machine's load instead of a fixed allowance, and only the timer's tick (1/100 s for
// processor time) is added.
struct Outer {
  std::chrono::steady_clock::time_point wall0 = std::chrono::steady_clock::now();
  double cpu0 = process_cpu();
  double wall() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - wall0).count() + 1e-3;
  }
  double cpu() const { return process_cpu() - cpu0 + 2.0 / sysconf(_SC_CLK_TCK); }
};

TEST(Timer, ProcessorAndElapsedTimeOfLaps) {
  QORKytTimer t;
  t.Stop();  // without a start: nothing
  EXPECT_EQ(t.GetCPU(), 0.0);
  EXPECT_EQ(t.GetElapsed(), 0.0);
  Outer busy;
  t.Start();
  burn_cpu(0.1);
  t.Stop();
  EXPECT_GE(t.GetCPU(), 0.08);
  EXPECT_LE(t.GetCPU(), busy.cpu());
  EXPECT_GE(t.GetElapsed(), 0.08);
  EXPECT_LE(t.GetElapsed(), busy.wall());

  Outer asleep;  // sleeping counts as elapsed time only
  QORKytTimer idle;
  idle.Start();
  sleep_ms(100);
  idle.Stop();
  EXPECT_GE(idle.GetElapsed(), 0.1);
  EXPECT_LE(idle.GetElapsed(), asleep.wall());
  EXPECT_LE(idle.GetCPU(), asleep.cpu());
  EXPECT_LT(idle.GetCPU(), idle.GetElapsed() / 2);

  QORKytTimer children;  // children waited for are counted
  children.Start();
  const pid_t pid = fork();
  if (pid == 0) {
    burn_cpu(0.1);
    _exit(0);
  }
  ASSERT_GT(pid, 0);
  int status = 0;
  waitpid(pid, &status, 0);
  children.Stop();
  EXPECT_GE(children.GetCPU(), 0.08);
}

TEST(Timer, LapsAddUpPausesDoNotAndResetDropsTheLap) {
  QORKytTimer t;
  Outer first_lap;
  t.Start();
  sleep_ms(40);
  t.Stop();
  const double first = t.GetElapsed();
  EXPECT_GE(first, 0.04);
  EXPECT_LE(first, first_lap.wall());
  sleep_ms(60);
  EXPECT_EQ(t.GetElapsed(), first);  // stopped: the sum does not move
  Outer second_lap;
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
  EXPECT_LE(t.GetElapsed(), first + second_lap.wall());
  EXPECT_GE(t.GetCPU(), c2);
  EXPECT_LE(t.GetCPU(), first_lap.cpu());

  t.Start();
  sleep_ms(30);
  t.Reset();  // during a lap: dropped, and stopped
  EXPECT_EQ(t.GetElapsed(), 0.0);
  EXPECT_EQ(t.GetCPU(), 0.0);
  sleep_ms(20);
  t.Stop();
  EXPECT_EQ(t.GetElapsed(), 0.0);
  Outer last_lap;
  t.Start();
  sleep_ms(30);
  t.Stop();
  EXPECT_GE(t.GetElapsed(), 0.03);
  EXPECT_LE(t.GetElapsed(), last_lap.wall());
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
