#pragma once
/// What is run with failing calls.

#include "tests/faults/Scenario.h"

namespace faults {

void textsAreRightOrRefused();
void filesKeepWhatWasWritten();
void aBackupLosesNothing();
void foldersAreMadeAndRemoved();
void placesAndVersionsAreRight();
void processesAreListed();
void clocksTellTheTime();
void threadsAndQueuesDeliver();
void timersExpire();

/// Before a run with a connection: a socket on a free port, which the peer plays; it listens at once, or later.
void prepareServer();
void prepareLaterServer();
void echoPackets();
void aConnectionCarriesPackets();
void playUpload();
void anUploadIsShownToItsEnd();

}  // namespace faults
