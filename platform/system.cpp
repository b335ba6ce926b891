#include "QORSystem.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/random.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>

#include "platform/fault_injection.h"

extern "C" const double QORdoubleMax = std::numeric_limits<double>::max();

extern "C" const char *QORGetEnv(const char *name) {
  if (name == nullptr) return nullptr;
  return std::getenv(name);
}

int QORGetLoginName(char *buffer, int size) {
  if (buffer == nullptr || size <= 0) return -1;
  buffer[0] = '\0';
  if (qor::fault::should_fail(qor::fault::Op::LoginName)) return -1;
  // The user of the process: the password entry of the effective user, else the session's
  // login, else $USER / $LOGNAME.
  const char *name = nullptr;
  struct passwd pw, *found = nullptr;
  char pwbuf[4096];
  if (::getpwuid_r(::geteuid(), &pw, pwbuf, sizeof pwbuf, &found) == 0 && found != nullptr)
    name = found->pw_name;
  char login[256];
  if (name == nullptr && ::getlogin_r(login, sizeof login) == 0) name = login;
  if (name == nullptr) name = std::getenv("USER");
  if (name == nullptr) name = std::getenv("LOGNAME");
  if (name == nullptr || *name == '\0') return -1;
  const size_t n = std::strlen(name);
  if (n + 1 > static_cast<size_t>(size)) return -1;
  std::memcpy(buffer, name, n + 1);
  return 0;
}

int QORGetSystemInfo(QORSystemInfo *info) {
  if (info == nullptr) return -1;
  std::memset(info, 0, sizeof *info);
  if (qor::fault::should_fail(qor::fault::Op::SystemInfo)) return -1;
  if (::gethostname(info->HostName, sizeof info->HostName - 1) != 0) {
    std::memset(info, 0, sizeof *info);
    return -1;
  }
  struct utsname u;
  if (::uname(&u) == 0) {
    std::snprintf(info->SystemName, sizeof info->SystemName, "%s", u.sysname);
    std::snprintf(info->Release, sizeof info->Release, "%s", u.release);
    std::snprintf(info->Machine, sizeof info->Machine, "%s", u.machine);
  }
  const long n = ::sysconf(_SC_NPROCESSORS_ONLN);
  info->ProcessorCount = n > 0 ? static_cast<int>(n) : 1;
  return 0;
}

QORTime::QORTime() : _Seconds(::time(nullptr)), _Valid(1) {
  if (_Seconds == static_cast<time_t>(-1)) _Valid = 0;
}
QORTime::QORTime(time_t seconds) : _Seconds(seconds), _Valid(1) {}
time_t QORTime::GetSeconds() const { return _Seconds; }

QORUnicodeString QORTime::ConvertToString(const char *format, int) const {
  if (!_Valid || format == nullptr || qor::fault::should_fail(qor::fault::Op::Time))
    return QORUnicodeString();
  struct tm t;
  if (::localtime_r(&_Seconds, &t) == nullptr) return QORUnicodeString();
  char buf[512];
  const size_t n = std::strftime(buf, sizeof buf, format, &t);
  return QORUnicodeString(buf, static_cast<int>(n));
}

QORUuid::QORUuid() {
  size_t got = 0;
  while (got < sizeof _Bytes) {
    const ssize_t r = ::getrandom(_Bytes + got, sizeof _Bytes - got, 0);
    if (r <= 0) break;
    got += static_cast<size_t>(r);
  }
  if (got < sizeof _Bytes) {
    // No kernel randomness: fall back on a generator seeded from the clock and the process.
    std::mt19937_64 gen(static_cast<unsigned long long>(
                            std::chrono::high_resolution_clock::now().time_since_epoch().count()) ^
                        (static_cast<unsigned long long>(::getpid()) << 32));
    for (auto &b : _Bytes) b = static_cast<unsigned char>(gen());
  }
  _Bytes[6] = static_cast<unsigned char>((_Bytes[6] & 0x0F) | 0x40);  // version 4
  _Bytes[8] = static_cast<unsigned char>((_Bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
}

const unsigned char *QORUuid::GetBytes() const { return _Bytes; }

int QORUuid::UUID_to_chaine(char *buffer, int size) const {
  if (buffer == nullptr || size <= 0) return 0;
  static const char hex[] = "0123456789abcdef";
  char text[37];
  int k = 0;
  for (int i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text[k++] = '-';
    text[k++] = hex[_Bytes[i] >> 4];
    text[k++] = hex[_Bytes[i] & 15];
  }
  text[36] = '\0';
  const int n = size < 36 ? size : 36;
  std::memcpy(buffer, text, static_cast<size_t>(n));
  if (n < size) buffer[n] = '\0';
  return n;
}
