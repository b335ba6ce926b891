#include <cstdio>
#include <cstring>

#include "QORFile.h"
#include "QORKytListing.h"
#include "QORSystem.h"
#include "kernels.h"
#include "services/listing_pass.h"

namespace {
constexpr int kInvalidArgument = static_cast<int>(0x80070057u);
constexpr int kFileExists = static_cast<int>(0x80070050u);
constexpr unsigned int kClosed = 0xFFFFFFFFu;
}  // namespace

// ---------------------------------------------------------------- traces

void QORKYTTraceState(const char *name, int state) {
  QORTraControle control(name);
  control.TraPutFlg(state);
}

void SetKytTraces() {
  QORKYTTraceState("KYTPrint", 1);
  QORKYTTraceState("KYTError", 1);
  QORKYTTraceState("KYTCompute", 0);
  QORKYTTraceState("KYTDefine", 0);
  QORKYTTraceState("KYTStorage", 0);
  QORKYTTraceState("KYTAcquire", 0);
  const QORUnicodeString directory(QORGetEnv("ZMR_QST_OUT"));
  (void)QORKytListingServices::Set(directory);  // no folder, no listing: nothing to say
}

// ---------------------------------------------------------------- print entries

extern "C" void ehprint(const char *text, qkm_len) {
  qkm_services::listing_pass([&] {
    Tra_KYTPrint.level = 2;
    Tra_KYTPrint.TraPutLN(text);
  });
}

extern "C" void ehprini(const char *text, const qkm_int *value, qkm_len) {
  const int v = value != nullptr ? *value : 0;
  qkm_services::listing_pass([&] {
    Tra_KYTPrint.level = 2;
    Tra_KYTPrint.TraPutLN(text, v);
  });
  qkm_services::listing_pass([&] {
    Tra_KYTPrint.level = 2;
    Tra_KYTPrint.TraPutLN("\n");
  });
}

extern "C" void ehprinr(const char *format, const double *value, qkm_len) {
  const double v = value != nullptr ? *value : 0.0;
  qkm_services::listing_pass([&] {
    if (format != nullptr) Tra_KYTPrint.TraPrint(2, format, v);
  });
  qkm_services::listing_pass([&] {
    Tra_KYTPrint.level = 2;
    Tra_KYTPrint.TraPutLN("\n");
  });
}

// ---------------------------------------------------------------- QORKytListingServices

QORUnicodeString &QORKytListingServices::GetDirectory() { return _Directory; }
QORUnicodeString &QORKytListingServices::GetFileName() { return _FileName; }
unsigned int QORKytListingServices::GetDescriptor() { return _Descriptor; }

void QORKytListingServices::ComputeFileName(QORUnicodeString &name) {
  name = "KytaniSolverLog_";
  // 36 bytes for the platform, one more so that a text filling all 36 stays terminated.
  char buffer[37];

  QORUnicodeString piece("UnknownUser_");
  std::memset(buffer, 0, sizeof buffer);
  if (QORGetLoginName(buffer, 36) == 0 && buffer[0] != '\0')
    piece = QORUnicodeString(buffer) + "_";
  name += piece;

  piece = "UnknownHost_";
  QORSystemInfo info;
  if (QORGetSystemInfo(&info) == 0 && info.HostName[0] != '\0')
    piece = QORUnicodeString(info.HostName) + "_";
  name += piece;

  piece = QORTime().ConvertToString("d%j_h%Hm%M_", 0);
  if (piece.GetLengthInChar() == 0) piece = "UnknownTime_";
  name += piece;

  std::memset(buffer, 0, sizeof buffer);
  QORUuid uuid;
  uuid.UUID_to_chaine(buffer, 36);
  piece = QORUnicodeString(buffer) + ".txt";
  name += piece;
}

int QORKytListingServices::Set(const QORUnicodeString &directory) {
  if (directory.IsEmpty()) return kInvalidArgument;
  QORUnicodeString path(directory);
  int status = _QORFileAccess(path, 6, 0);
  if (status < 0) return status;

  QORUnicodeString name;
  if (_Descriptor == kClosed) {
    ComputeFileName(name);
  } else {
    status = QORIdenticaleFile(&path, &_Directory);
    if (status != 1) return status;  // 0: already there, stays open
    name = _FileName;                // a listing keeps its name when it moves
  }

  status = QORMakePath(&path, &name);
  if (status < 0) return status;

  status = _QORFileAccess(path, 0, 0);
  if (status >= 0) return kFileExists;
  if ((status & 0xFFFF) != 2) return status;  // only "no such file" goes on

  if (_Descriptor != kClosed) {
    QORUnicodeString old(_Directory);
    status = QORMakePath(&old, &_FileName);
    if (status < 0) return status;
    status = QORFClose(_Descriptor);
    if (status < 0) return status;
    status = QORFCopy(old, path, 1);
    if (status < 0) return status;
    status = _QORDeleteFile(old);
    if (status < 0) return status;
  }

  unsigned int descriptor = kClosed;
  status = QORFOpen(path, "a+c", &descriptor);
  if (status >= 0) {
    _Descriptor = descriptor;
    _FileName = name;
    _Directory = directory;
  }
  return status;
}

int QORKytListingServices::Reset() {
  if (_Descriptor == kClosed) return 0;
  const int status = QORFClose(_Descriptor);
  if (status < 0) return status;
  _Descriptor = kClosed;
  _FileName = "";
  _Directory = "";
  return status;
}
