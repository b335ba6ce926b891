#include "QORKytTimer.h"

#include <unistd.h>

#include <cstring>
#include <ctime>

namespace {

// Processor seconds between two samples: user, system, and both of the waited-for children,
// summed as ticks in that order.
double cpu_seconds(const struct tms &from, const struct tms &to) {
  const clock_t ticks = (to.tms_utime - from.tms_utime) + (to.tms_stime - from.tms_stime) +
                        (to.tms_cutime - from.tms_cutime) + (to.tms_cstime - from.tms_cstime);
  return static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double wall_seconds(const struct timeval &from, const struct timeval &to) {
  return static_cast<double>(to.tv_usec - from.tv_usec) / 1000000.0 +
         static_cast<double>(to.tv_sec - from.tv_sec);
}

}  // namespace

QORKytTimer::QORKytTimer() : _CPU(0.0), _Elapsed(0.0), _Running(0) {}

QORKytTimer::~QORKytTimer() {
  _CPU = 0.0;
  _Elapsed = 0.0;
  _Running = 0;
}

void QORKytTimer::Start() {
  if (_Running) return;
  _Running = 1;
  times(&_TimesStart);
  gettimeofday(&_TimeStart, nullptr);
}

void QORKytTimer::Stop() {
  if (!_Running) return;
  times(&_TimesStop);
  gettimeofday(&_TimeStop, nullptr);
  _Elapsed += wall_seconds(_TimeStart, _TimeStop);
  _CPU += cpu_seconds(_TimesStart, _TimesStop);
  _Running = 0;
}

void QORKytTimer::Reset() {
  _CPU = 0.0;
  _Elapsed = 0.0;
  _Running = 0;
  times(&_TimesStart);
  gettimeofday(&_TimeStart, nullptr);
}

double QORKytTimer::GetCPU() {
  if (!_Running) return _CPU;
  times(&_TimesStop);
  return cpu_seconds(_TimesStart, _TimesStop) + _CPU;
}

double QORKytTimer::GetElapsed() {
  if (!_Running) return _Elapsed;
  gettimeofday(&_TimeStop, nullptr);
  return wall_seconds(_TimeStart, _TimeStop) + _Elapsed;
}

void KytGetDate(char *&text) {
  text = new char[80];
  std::strcpy(text, "Year : ");

  const time_t now = time(nullptr);
  struct tm *local = localtime(&now);
  // Day 1 is the first of January; the shared structure keeps the change.
  local->tm_yday += 1;

  char year[5];
  std::memset(year, 0, sizeof year);
  strftime(year, 5, "%Y", local);
  std::strcat(text, year);

  const int day = local->tm_yday;
  const char digits[4] = {static_cast<char>('0' + day / 100),
                          static_cast<char>('0' + day / 10 % 10),
                          static_cast<char>('0' + day % 10), '\0'};
  std::strcat(text, " Day : ");
  std::strcat(text, digits);

  std::strcat(text, " Hour : ");
  const int h = local->tm_hour, m = local->tm_min, s = local->tm_sec;
  const char clock[15] = {static_cast<char>('0' + h / 10), static_cast<char>('0' + h % 10),
                          ' ', 'h', ' ',
                          static_cast<char>('0' + m / 10), static_cast<char>('0' + m % 10),
                          ' ', 'm', ' ',
                          static_cast<char>('0' + s / 10), static_cast<char>('0' + s % 10),
                          ' ', 's', '\0'};
  std::strcat(text, clock);
}
