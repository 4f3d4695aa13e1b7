"""Captures, chains, networks: the program's figures and samples, bit for bit, and arrays that outlive what they came from."""
import gc
import json
import pickle

import numpy as np
import pytest

import tarnwick

CHAIN = {"filters": [{"type": "ctle", "gain": 3.0}, {"type": "bessel-thomson"},
                     {"type": "ffe", "numberOfTaps": 5, "mainCursorPosition": 2}]}


@pytest.fixture(scope="module")
def folder(program, tmp_path_factory):
    path = tmp_path_factory.mktemp("captures")
    program("simulate", "-o", path / "periodic.csv", "--coding", "NRZ", "--prbs", "9", "--baud", "10.3125", "--spu", "16",
            "--loss", "4", "--noise", "0.004")
    program("simulate", "-o", path / "shot.csv", "--coding", "PAM4", "--prbs", "31", "--length", "6000", "--spu", "7.3",
            "--loss", "3", "--noise", "0.004")
    (path / "chain.json").write_text(json.dumps(CHAIN))
    return path


def without_times(stages):
    return [{key: value for key, value in stage.items() if key != "seconds"} for stage in stages]


@pytest.mark.parametrize("capture", ["periodic.csv", "shot.csv"])
def test_a_chain_gives_what_the_program_gives(capture, folder, program):
    printed = json.loads(program("apply", folder / "chain.json", folder / capture, "-o", folder / "out.npy", "--json"))
    chain = tarnwick.Chain.from_json(folder / "chain.json")
    for given in (tarnwick.read(folder / capture), pickle.loads(pickle.dumps(tarnwick.read(folder / capture)))):
        result = chain.apply(given)
        assert np.array_equal(result.samples, np.load(folder / "out.npy"))
        assert without_times(result.stages) == without_times(printed["stages"])
        assert result.acquisition == printed["acquisition"]
    again = pickle.loads(pickle.dumps(chain)).apply(np.asarray(given.samples), sample_rate=1e-9 / given.interval if given.interval else 0)
    assert len(again.stages) == 4 and repr(again).startswith("Result('samples', ")


def test_a_report_is_the_program_s(folder, program):
    def document(page):
        return json.loads(page.read_text().split('id="tarnwick-report">')[1].split("</script>")[0])
    program("report", folder / "chain.json", folder / "shot.csv", "-o", folder / "printed.html")
    printed = document(folder / "printed.html")
    chain = tarnwick.Chain.from_json(folder / "chain.json")
    chain.apply(tarnwick.read(folder / "shot.csv")).report(folder / "made.html")
    made = document(folder / "made.html")
    assert made["stages"] == printed["stages"] and made["warnings"] == printed["warnings"]
    assert made["head"]["captures"][0]["sha256"] == printed["head"]["captures"][0]["sha256"]
    assert made["head"]["command"] is None and made["head"]["version"] == printed["head"]["version"]
    with pytest.raises(ValueError, match="none/made.html"):
        chain.apply(tarnwick.lock(tarnwick.read(folder / "shot.csv"))).report(folder / "none" / "made.html")


@pytest.mark.parametrize("capture", ["periodic.csv", "shot.csv"])
def test_lock_and_measure_find_what_the_program_finds(capture, folder, program):
    printed = json.loads(program("lock", folder / capture, "-o", folder / "locked.npy", "--json"))
    locked = tarnwick.lock(tarnwick.read(folder / capture))
    assert locked.report == printed and np.array_equal(locked.samples, np.load(folder / "locked.npy"))
    assert len(locked) == locked.t.size == printed["samples"] and printed["coding"] in repr(locked)
    assert tarnwick.measure(locked) == json.loads(program("measure", folder / capture, "--json"))
    eye = locked.eye(bathtub=True)
    assert eye.bathtub["low"].shape == (eye.bathtub["ber"].size, len(eye.eyes)) == (65, len(eye.levels) - 1)
    # The device that was found is enough for a filter by itself, and for the capture to be locked again.
    assert tarnwick.BesselThomson(locked.device if locked.interval else {**locked.device.to_dict(), "baudRateGBd": 10.0})(
        locked).shape == locked.samples.shape
    assert np.array_equal(pickle.loads(pickle.dumps(locked)).samples, locked.samples)


def test_a_simulated_capture_is_the_program_s(folder, program):
    program("simulate", "-o", folder / "sim.npy", "--coding", "PAM4", "--prbs", "31", "--length", "500", "--first", "40", "--spu",
            "7.3", "--loss", "3", "--noise", "0.004", "--jitter", "0.01", "--seed", "5")
    capture = tarnwick.simulate(prbs=31, length=500, first=40, spu=7.3, loss=3, noise=0.004, jitter=0.01, seed=5)
    assert np.array_equal(capture.samples, np.load(folder / "sim.npy"))
    assert capture.interval == pytest.approx(1.0 / (26.5625e9 * 7.3), rel=1e-15)


def test_messages_name_the_options_of_read(tmp_path):
    path = tmp_path / "headed.txt"
    path.write_text("-5.8e-08\n16002\n4e+10\n" + "0.1\n-0.1\n" * 50)
    with pytest.raises(ValueError, match=r"headed\.txt: .* with skip_lines 3"):
        tarnwick.read(path)
    assert tarnwick.read(path, skip_lines=3).samples.shape == (100,)


def test_views_outlive_what_they_came_from(folder):
    chain = tarnwick.Chain.from_json(folder / "chain.json")
    samples = tarnwick.read(folder / "periodic.csv").samples
    filtered = chain.apply(tarnwick.read(folder / "periodic.csv")).samples
    eye = chain.apply(tarnwick.read(folder / "periodic.csv")).eye()
    del chain
    gc.collect()
    assert np.ptp(samples) > 0.1 and np.all(np.isfinite(samples)) and np.all(np.isfinite(filtered))
    assert eye.image(64, 32)[0].shape == (32, 64)
    with pytest.raises(ValueError, match="columns, rows are 3, 32; expected an even number"):
        eye.image(3, 32)


@pytest.mark.parametrize(("call", "error", "text"), [
    (lambda: tarnwick.read("absent.csv"), FileNotFoundError, "absent.csv"),
    (lambda: tarnwick.touchstone("absent.s2p"), FileNotFoundError, "absent.s2p"),
    (lambda: tarnwick.Chain.from_json("absent.json"), FileNotFoundError, "absent.json"),
    (lambda: tarnwick.lock(np.zeros(100)), ValueError, "samples"),
    (lambda: tarnwick.lock([np.nan] * 100), ValueError, "finite"),
    (lambda: tarnwick.lock(np.zeros((2, 2))), ValueError, "lock: samples have shape (2, 2)"),
    (lambda: tarnwick.lock(np.zeros(9), coding="NZR"), ValueError, "signalCoding"),
    (lambda: tarnwick.lock(np.zeros(9), clock="fixed"), ValueError, "lock: clock is 'fixed'; expected constant or tracked"),
    (lambda: tarnwick.lock(np.zeros(9), baud=-1), ValueError, "lock: baud is -1"),
    (lambda: tarnwick.lock(np.zeros(9), sample_rate=80e9), ValueError, "lock: sample_rate is 80000000000.0 GS/s"),
    (lambda: tarnwick.measure(np.zeros(9), taps=0), ValueError, "measure: taps is 0; expected 1 to 64"),
    (lambda: tarnwick.simulate(spu=0.5), ValueError, "simulate: spu is 0.5; expected 1 to 4096"),
    (lambda: tarnwick.simulate(coding="NRZ", symbols="012"), ValueError, "2"),
    (lambda: tarnwick.Chain({"filters": [{"type": "ctl"}]}), ValueError, 'the nearest one is "ctle"'),
    (lambda: tarnwick.Chain({"filter": []}), ValueError, 'the nearest one is "filters"'),
    (lambda: tarnwick.Chain({"filters": [{"type": "ctle", "gian": 1}]}), ValueError, 'filters.0.gian: is not a known key'),
    (lambda: tarnwick.Chain({"filters": []}).apply(np.zeros(3, complex)), TypeError, "Chain.apply: samples have dtype complex128"),
    (lambda: tarnwick.Network([1.0, 1.0], np.zeros((2, 1, 1))), ValueError, "Network: f has shape (2,); expected rising"),
    (lambda: tarnwick.Network([1.0], np.zeros((1, 2, 1))), ValueError, "Network: s has shape (1, 2, 1)"),
], ids=range(19))
def test_bad_input_is_refused_by_name(call, error, text):
    with pytest.raises(error) as caught:
        call()
    assert text in str(caught.value)


@pytest.mark.parametrize("ports", [1, 2, 4])
def test_networks_are_written_and_read_to_the_same_numbers(ports, tmp_path):
    class OfAnotherLibrary:  # what scikit-rf's networks have
        f = np.linspace(1e7, 2e10, 50)
        s = np.random.default_rng(ports).normal(size=(50, ports, ports, 2)).view(complex)[..., 0] / 10.0

    from tarnwick._networks import write_touchstone
    network = tarnwick.touchstone(write_touchstone(OfAnotherLibrary, tmp_path / "fixture"))
    assert np.array_equal(network.f, OfAnotherLibrary.f) and np.array_equal(network.s, OfAnotherLibrary.s)
    assert network.ports == ports and network.z0 == 50.0 and repr(network) == (
        f"Network('fixture', {ports} ports, 50 points from 1e+07 to 2e+10 Hz)")


def test_a_torn_network_file_is_refused_with_its_line(tmp_path):
    path = tmp_path / "torn.s2p"
    path.write_text("# GHz S RI R 75\n1 0 0 1 0 1 0 0 0\n2 0 0 1 x 1 0 0 0\n")
    with pytest.raises(ValueError, match=r"torn\.s2p: .*"):
        tarnwick.touchstone(path)
    path.write_text("# GHz S RI R 75\n1 0 0 1 0 .5 0 0 0\n")
    network = tarnwick.touchstone(path)
    assert network.z0 == 75.0 and network.s[0, 1, 0] == 1.0 and network.s[0, 0, 1] == 0.5
