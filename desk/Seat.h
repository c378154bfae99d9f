// The simulated Mac with somebody in front of it: its clock follows the real one, and what is to happen arrives while
// it runs. It is played in a process of its own, so that whatever becomes of the program or the machine, the one who
// asked is told and can begin anew.
#pragma once

#include <string>
#include <vector>

#include "simulator/kernel/Schedule.h"

struct SeatOptions {
  simulator::Seed seed;
  bool isFurnished = true;  // begins with a desk and the program running, and leaves alerts and questions to the user
  bool isLive = true;       // the clock runs from the start
};

// What is on a furnished desk, as scenario lines.
std::vector<std::string> furnishing();

// Plays the machine until `commands` ends, on the deterministic clock, so that what was done can be repeated. Takes
// lines "ID WORD REST" from the file `commands`:
//
//   ID do LINE            carries a scenario line out
//   ID state              what is visible, and the clock
//   ID clock live|paused
//   ID listen on|off      whether samples are wanted
//
// and answers on the file `messages` with lines of which the first letter says what they are:
//
//   R CAUSE RECORD        a record of the trace, and the number of the `do` record that it goes back to
//   D MS LINE             a line was carried out, so many milliseconds after the one before
//   T MS                  so many milliseconds have passed since the last line
//   S JSON                what is visible has changed
//   P JSON                the clock, the levels of the outputs and a piece of the waves, some times a second
//   A RATE BASE64         samples: 16 bits each, little-endian, of the default output's players and of its speaker in
//   turn Q ID STATUS TEXT      the answer to a command: 200 or 400, and the reason
//
// The exit status: 0 when the commands ended, 1 after a `fatal` record.
int seat(const SeatOptions& options, int commands, int messages);
