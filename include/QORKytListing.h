// Traces, printing and the listing file of the services.
//
// Text reaches the listing through the trace Tra_KYTPrint, whose destination is standard
// output: for the moment of each single put, standard output is pointed at the listing's
// descriptor. With no listing open the same calls print to standard output.
#ifndef QORKYTMATHKERNEL_LISTING_H
#define QORKYTMATHKERNEL_LISTING_H

#include "QORExport.h"
#include <stddef.h>

#include "QORString.h"
#include "QORTrace.h"


// The ten traces of the library, made at load. Only Tra_KYTPrint is written by the library.
extern QOR_API QORTrace Tra_KYTPrint;        // "KYTPrint"
extern QOR_API QORTrace Tra_KYTCompute;      // "KYTCompute"
extern QOR_API QORTrace Tra_KYTDefine;       // "KYTDefine"
extern QOR_API QORTrace Tra_KYTStorage;      // "KYTStorage"
extern QOR_API QORTrace Tra_KYTAcquire;      // "KYTAcquire"
extern QOR_API QORTrace Tra_KYTOutput;       // "KYTOutput"
extern QOR_API QORTrace Tra_KYTInfra;        // "KYTInfra"
extern QOR_API QORTrace Tra_KYTStorageLink;  // "KYTStorageLink"
extern QOR_API QORTrace Tra_KYTError;        // "KYTError"
extern QOR_API QORTrace Tra_KYTCpuElapse;    // "KYTCpuElapse"

// Switches the trace called `name` on (1) or off (0).
QOR_API void QORKYTTraceState(const char *name, int state);

// Sets the traces of a solver run and opens the listing in the folder named by the
// environment variable ZMR_QST_OUT (no listing when it is not set).
QOR_API void SetKytTraces();

// The listing file. Statuses: 0 success, 0x80070057 empty folder, 0x80070050 the target
// file exists, else the failing platform call's negative status.
class QOR_API QORKytListingServices {
 public:
  // Opens the listing in `directory`, or moves the open one there, text included.
  static int Set(const QORUnicodeString &directory);
  // Closes the listing and forgets its name.
  static int Reset();
  static QORUnicodeString &GetDirectory();
  static QORUnicodeString &GetFileName();
  static unsigned int GetDescriptor();
  // "KytaniSolverLog_" + user_ + host_ + "d%j_h%Hm%M_" + UUID + ".txt".
  static void ComputeFileName(QORUnicodeString &name);

  static unsigned int _Descriptor;  // all ones: no listing open
  static QORUnicodeString _FileName;
  static QORUnicodeString _Directory;
};

#endif
