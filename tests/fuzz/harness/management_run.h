// A tunnel management run under a fuzzer's eyes.
#pragma once

/// Performs a run on `router` as a daemon that was just started does, demands of it what holds for every configuration
/// (SECURITY.md says what does not), and performs it once more, since nothing may be left of a run that changes the
/// next one. `router.deeds` and the process-wide lists are then those of a run.
void superviseRun();
