// Stopwatch of processor and wall-clock time, and the date text of the solver's reports.
#ifndef QORKYT_TIMER_H
#define QORKYT_TIMER_H

#include "QORExport.h"
#include <sys/time.h>
#include <sys/times.h>

// Sums processor time (user and system, the waited-for children included) and wall-clock
// time over any number of Start/Stop laps. For one thread.
class QOR_API QORKytTimer {
 public:
  QORKytTimer();
  ~QORKytTimer();

  // Begins a lap; a second Start during a lap is ignored.
  void Start();
  // Ends the lap and adds it to the sums; does nothing when stopped.
  void Stop();
  // Clears the sums and leaves the timer stopped.
  void Reset();
  // Seconds of processor time so far, the running lap included.
  double GetCPU();
  // Seconds of wall-clock time so far, the running lap included.
  double GetElapsed();

 private:
  double _CPU;
  double _Elapsed;
  int _Running;
  struct tms _TimesStart;
  struct tms _TimesStop;
  struct timeval _TimeStart;
  struct timeval _TimeStop;
};

// Allocates (new[], 80 bytes, owned by the caller) and fills the text
// "Year : YYYY Day : DDD Hour : HH h MM m SS s" of the current local time.
// Writes into the shared result of localtime: not for concurrent use with it.
QOR_API void KytGetDate(char *&text);

#endif
