#pragma once

/// From now on Ctrl-C (and a request to end, or a terminal that goes away) is noted instead of ending the
/// program at once. What does not stop by itself within a second is ended then, or by a second signal: no
/// temporary file is left, and the exit status tells the signal. To be called before there are threads.
void watchInterrupts();

/// Undoes that for a program that this process is about to become.
void unwatchInterrupts();

/// True once it was asked to stop: what is being worked on is finished, and nothing new begun.
bool interrupted();

/// The exit status that tells of it: 128 and the number of the signal.
int interruptedStatus();
