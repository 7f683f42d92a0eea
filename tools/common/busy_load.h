// Busy processes that keep every core occupied, so that the engines can be
// timed as they run on a phone whose cores also serve the ISP driver, the
// preview and the app. Each is a forked child that only spins; it dies with
// its parent (Linux and Android), after a bounded lifetime in any case, and
// when stopBusyLoad kills it.
#pragma once

namespace kvdsrtool {

// Starts `count` busy processes that live at most lifetimeSeconds, then
// waits briefly so that the scheduler spreads them over the cores. False,
// with none left running, when a fork fails.
bool startBusyLoad(int count, unsigned lifetimeSeconds);

// True while every started busy process still runs.
bool busyLoadAlive();

// Kills and reaps them. Safe when none run; registered with atexit by the
// first start.
void stopBusyLoad();

// SIGINT, SIGTERM and SIGHUP kill the busy processes before the default
// action ends this process.
void stopBusyLoadOnSignals();

}  // namespace kvdsrtool
