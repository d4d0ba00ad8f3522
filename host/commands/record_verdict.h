// What a recording is worth: the exit code, and the streams that stayed silent.
#pragma once

#include "host/base/exit_code.h"
#include "host/recording/recording_run.h"

namespace camhost {

/// What camhost exits with after this recording. `setting_refused`: one of the properties set
/// before or after it was.
ExitCode verdict_on(const RecordingResult& recording, bool setting_refused, const Session& session,
                    const Controls& controls);

/// True for an ending that leaves nothing to go on with: it decides the exit code, whatever
/// earlier combinations gave.
bool cuts_short(ExitCode code);

/// The streams of `expected` that were observed and brought nothing.
StreamSet silent_streams(const RecordingResult& recording, const StreamSet& expected);

}  // namespace camhost
