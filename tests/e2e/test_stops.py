"""Stops, kills and second starts: the statistics end up exact whatever happens when."""

import os
import random
import re
import time

import pytest
from programs import FAILED, PAUSE, SIGINT, SIGKILL, STOPS, WINDOWS, count
from world import TINY, World


def time_one_pass(world: World) -> float:
    begin = time.monotonic()
    service = world.start()
    assert service.reaches(PAUSE), service.story()
    taken = time.monotonic() - begin
    world.stop(service)
    return taken


def end_at_random(world: World, rounds: int, signal: int) -> None:
    """Ends passes at random moments. New logs keep coming in between. The service must start again
    every time, and nothing that it left behind may count twice, be lost, or be taken for damaged."""
    if WINDOWS:
        rounds //= 2  # since most of the time goes into starts of the emulator
    rounds = int(os.environ.get("KESTRINE_ROUNDS", rounds))
    choices = random.Random(int(os.environ.get("KESTRINE_SEED", 1)))
    killing = signal == SIGKILL
    world.settings["maxHashMemory"] = 16
    world.generate(visits=6000, **TINY)
    whole = time_one_pass(world)
    for i in range(rounds):
        if i % 3 == 0:
            world.append(1500 if killing else 4000, new_days=int(i % 100 == 15),
                         new_devices=int(i == 24))
        service = world.start()
        # The first line after the run flag is set.
        assert killing or service.reaches("command rmdir"), service.story()
        time.sleep(whole * choices.random())
        if killing:
            service.kill()
            assert service.wait() == -SIGKILL, f"round {i} ended by itself: {service.story()}"
        else:
            world.stop(service, signal)
        # The remains of a set of lists are the one thing that is reported as an error, after kills.
        errors = service.errors()
        assert len(errors) == (count(errors, "topn.temp.temp exist, delete") if killing else 0), i
        if i % 50 == 49 or i + 1 == rounds:
            time_one_pass(world)
            assert world.differences() == [], i
    assert world.set_aside() == []


def test_kills_at_random_moments_lose_nothing(world: World) -> None:
    end_at_random(world, 300, SIGKILL)


@pytest.mark.parametrize("signal", STOPS)
def test_stops_at_random_moments_lose_nothing(world: World, signal: int) -> None:
    end_at_random(world, 50, signal)


def test_early_request_is_kept(world: World) -> None:
    """Right behind the line that is waited for, the handler stands."""
    world.generate(visits=500, **TINY)
    for i in range(20):
        service = world.start()
        assert service.reaches("m_maxHashMemory"), service.story()
        time.sleep(0.0003 * i)
        world.stop(service)


def test_second_request_ends_the_service_at_once(world: World) -> None:
    """In a wait that the first one does not end."""
    world.make_accounts()
    service = world.start()
    assert service.reaches("account size is 0"), service.story()
    service.request(SIGINT)
    assert service.reaches("Recv signal:2 ... "), service.story()
    service.request(SIGINT)
    service.wait()  # whatever the system makes of it
    assert count(service.lines, " exit normally") == 0


def test_second_instance_is_refused_and_changes_nothing(world: World) -> None:
    """Also stops the first one in the middle of a long pause."""
    world.settings["sleepTime"] = 600
    world.generate(visits=500, **TINY)
    service = world.start()
    assert service.reaches(PAUSE), service.story()
    world.append(500)
    world.configure(sleepTime=1)
    before = world.files(log=False)
    code, lines = world.run()
    assert code == FAILED
    assert re.fullmatch("I:.* another instance is running\nE:main .* create instance fail",
                        "\n".join(lines))
    assert world.files(log=False) == before
    world.stop(service)
    world.one_pass()
    assert world.differences() == []
