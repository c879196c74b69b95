"""Two hundred ports are deleted and made again together, six times, then one port 17 times a second;
nothing is lost meanwhile on the port that stays, and none is left blocked or deaf."""

from rig.line_card import play

CI = False


def run(lab):
    play(lab, ports=200, rounds=6, remakes=100)
