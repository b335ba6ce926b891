// Objects of the services made at load. They live in this one file so that their order is
// fixed: the ten traces, then the two strings of the listing, then the empty encapsulations
// (the default constructors of the two derived encapsulations copy EmptyEncap). They are
// destroyed in the reverse order at unload; an open listing is left to the process's end.
#include "QORKytListing.h"
#include "QORKytValue.h"

QORTrace Tra_KYTPrint("KYTPrint", "Kytani traces for listing", QORTraModeDefault, "STDOUT",
                      1024);
QORTrace Tra_KYTCompute("KYTCompute", "Kytani traces for computation", QORTraModeDefault,
                        "STDOUT", 1024);
QORTrace Tra_KYTDefine("KYTDefine", "Kytani traces for definition", QORTraModeDefault,
                       "STDOUT", 1024);
QORTrace Tra_KYTStorage("KYTStorage", "Kytani traces for external storage",
                        QORTraModeDefault, "STDOUT", 1024);
QORTrace Tra_KYTAcquire("KYTAcquire", "Kytani traces for acquisition", QORTraModeDefault,
                        "STDOUT", 1024);
// The output trace shares the acquisition trace's description.
QORTrace Tra_KYTOutput("KYTOutput", "Kytani traces for acquisition", QORTraModeDefault,
                       "STDOUT", 1024);
QORTrace Tra_KYTInfra("KYTInfra", "Kytani traces for infrastructure", QORTraModeDefault,
                      "STDOUT", 1024);
QORTrace Tra_KYTStorageLink("KYTStorageLink", "Kytani traces for external storage links ",
                            QORTraModeDefault, "STDOUT", 1024);
QORTrace Tra_KYTError("KYTError", "Kytani traces for errors", QORTraModeDefault, "STDOUT",
                      1024);
QORTrace Tra_KYTCpuElapse("KYTCpuElapse", "Kytani traces for Cpu and Elapses",
                          QORTraModeDefault, "STDOUT", 1024);

unsigned int QORKytListingServices::_Descriptor = 0xFFFFFFFFu;
QORUnicodeString QORKytListingServices::_FileName;
QORUnicodeString QORKytListingServices::_Directory;

QORKytTypeEncap QORKytTypeEncap::EmptyEncap;
QORKytTypeEncapError QORKytTypeEncapError::EmptyEncapEr;
QORKytTypeEncapMemory QORKytTypeEncapMemory::EmptyEncapMem;
