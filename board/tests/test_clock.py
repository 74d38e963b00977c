"""A wall clock far from now, on the kernel's driver: the pace holds, nothing spins, and lines bear its date.

The kernel lets nobody set its clock to a time before 1970."""

from collections import namedtuple
from datetime import datetime, timezone

import pytest
from kernel_log import calls, recording

from board.machines import INSTRUCTION_CLOCK
from desk import SOCKET
from desk.trace import parse_trace

FLIPS = 150
PERIOD_S = 0.029  # one late frame lets the next be early


def seconds(year):
    return int(datetime(year, 1, 2, tzinfo=timezone.utc).timestamp())


# The board's shell counts times in 32 bits: in 2040 it finds no program that it has read since, and no file
# that was made since. So reading leaves no date, and the answer is written when the clock is set back.
LIFE = f"""
mount -o remount,noatime /
used() {{
  cut -d' ' -f1 /proc/uptime
  awk '{{ print ($14 + $15) / 100 }}' /proc/$pid/stat
}}
flips() {{ wait_for sh -c "[ \\$(dmesg | grep -c DQBUF:) -ge $1 ]"; }}
answer=$(
  board-tool clock SECONDS || exit
  bootlume A B >/run/far.log 2>&1 &
  pid=$!
  flips 5
  used
  flips {FLIPS}
  used
  board-tool send {SOCKET} refused
  wait_for grep -q 'Wrong message format' /run/far.log
  board-tool send {SOCKET} QUIT
  wait $pid
  echo $?
  cat /run/far.log
)
status=$?
board-tool clock {seconds(2020)}
echo "$answer"
exit $status
"""

Life = namedtuple("Life", "load period status lines")


def live(board, year):
    """A splash's whole life in that year: its share of the processor, the seconds from flip to
    flip, its exit status, and its lines."""
    with recording(board):
        *words, log = board.text(LIFE.replace("SECONDS", str(seconds(year)))).split("\n", 5)
    begin, used_before, end, used_after, status = map(float, words)
    times = [call[0] for call in calls(board) if call[1] == "DQBUF"]
    period = (times[-1] - times[0]) / (len(times) - 1)
    return Life((used_after - used_before) / (end - begin), period, status, parse_trace(log)[0])


@pytest.mark.once
def test_a_clock_far_from_now_changes_neither_pace_nor_load(bench):
    with bench.fresh("plain", emulator=INSTRUCTION_CLOCK) as board:
        usual = live(board, 2020)
        for year in (1970, 2040):
            life = live(board, year)
            figures = [f"{100 * one.load:.1f} %, {1000 * one.period:.1f} ms a frame" for one in (life, usual)]
            print(f"in {year} {figures[0]}; as a rule {figures[1]}")
            assert life.status == 0
            assert life.period >= PERIOD_S and abs(life.period - usual.period) <= 0.1 * usual.period, figures
            assert abs(life.load - usual.load) <= 0.1 * usual.load, figures
            (line,) = life.lines
            assert line.date.startswith(f"{year}0102-") and "Wrong message format" in line.text
