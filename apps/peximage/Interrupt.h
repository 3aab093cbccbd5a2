#pragma once

/// From now on Ctrl-C (and a request to end) is noted instead of ending the program at once; a second one
/// ends it.
void watchInterrupts();

/// True once it was asked to stop: what is being worked on is finished, and nothing new begun.
bool interrupted();
