#pragma once

// The hand-off to whoever uploads dumps. The ready marker beside the archive
// and the info file says that both are complete and of one run, and it must
// keep saying only that across a power cut at any moment: storage keeps a
// file's content and a directory's names only as of their last sync.

// Removes a marker that an earlier run left, durably, before anything of its
// dump is rewritten. A marker that cannot be removed stays for the marker
// write at the end, which then fails.
void WithdrawReadyMarker();

// Makes the info file's name durable (its writer syncs its content);
// failures are left to the marker.
void SyncInfoFileName();

// Writes the empty marker and makes its name durable. Throws ErrnoException
// when the marker cannot be written.
void PublishReadyMarker();
