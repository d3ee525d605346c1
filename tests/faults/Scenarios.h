#pragma once
/// What is run with failing calls.

#include "tests/faults/Torture.h"

namespace faults {

bool textsAreRightOrRefused();
bool filesKeepWhatWasWritten();
bool aBackupLosesNothing();
bool foldersAreMadeAndRemoved();
bool placesAndVersionsAreRight();
bool processesAreListed();
bool clocksTellTheTime();
bool threadsAndQueuesDeliver();
bool timersExpire();

/// Before a run with a connection: a socket on a free port, which the peer plays.
void prepareServer();
void echoPackets();
bool aConnectionCarriesPackets();
void playUpload();
bool anUploadIsShownToItsEnd();

}  // namespace faults
