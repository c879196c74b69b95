"""The same as line_card, in short."""

from rig.line_card import play

CI = True


def run(lab):
    play(lab, ports=60, rounds=2, remakes=30)
