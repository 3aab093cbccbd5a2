"""The package as its users meet it. Pillow and NumPy are the references."""

import asyncio
import ctypes
import io
import os
import pickle
import signal
import subprocess
import sys
import threading
from concurrent.futures import ProcessPoolExecutor, ThreadPoolExecutor
from multiprocessing import get_context

import numpy as np
import peximage as pex
import pytest
from peximage.composer import Composer, ComposerStore, Guide, Layer, Text, Transform
from PIL import Image as pillow
from PIL import ImageCms


def scene(width, height, channels=3, seed=1):
    """A smooth picture with some detail, the same for the same arguments."""
    y, x = np.mgrid[0:height, 0:width]
    waves = [128 + 100 * np.sin(x / (7 + 3 * c) + seed) * np.cos(y / (11 - 2 * c)) for c in range(channels)]
    return np.stack(waves, axis=-1).clip(0, 255).astype(np.uint8)


class Dripping(io.BytesIO):
    """Gives its bytes piece by piece, as pipes and sockets do."""

    def read(self, size=-1):
        return bytearray(super().read(min(size, 1000)))


def closed(path):
    file = path.open("rb")
    file.close()
    return file


def encoded(array, format="JPEG", **options):
    file = io.BytesIO()
    pillow.fromarray(array).save(file, format, **options)
    return file.getvalue()


def decoded(data):
    return np.asarray(pillow.open(io.BytesIO(data)))


@pytest.fixture()
def photo(tmp_path):
    path = tmp_path / "photo.jpg"
    path.write_bytes(encoded(scene(640, 480), quality=95, dpi=(300, 300)))
    return path


def test_opens_paths_bytes_and_files(photo):
    data = photo.read_bytes()
    for source in (str(photo), photo, data, bytearray(data), photo.open("rb"), Dripping(data)):
        image = pex.open(source)
        assert (image.size, image.mode, image.format) == ((640, 480), "RGB", "jpeg")
        assert image.info["dpi"] == (300, 300)
        difference = np.asarray(image).astype(int) - decoded(data)
        assert np.abs(difference).max() <= 3 and np.abs(difference).mean() < 0.2


@pytest.mark.parametrize("mode, channels", [("L", 1), ("RGB", 3), ("RGBA", 4)])
def test_arrays_go_there_and_back(mode, channels):
    array = scene(37, 23, channels).squeeze()
    image = pex.from_array(array)
    assert (image.mode, image.size) == (mode, (37, 23))
    assert np.array_equal(np.asarray(image), array)
    assert np.array_equal(np.asarray(memoryview(image)), array)
    assert np.array_equal(np.from_dlpack(image), array) and not np.from_dlpack(image).flags.writeable
    interface = type("Interface", (), {"__array_interface__": image.__array_interface__, "image": image})
    assert np.array_equal(np.asarray(interface()), array)
    assert not np.asarray(image).flags.writeable
    assert np.array_equal(decoded(image.encode("png").data), array)
    assert np.array_equal(np.asarray(pickle.loads(pickle.dumps(image))), array)
    assert np.array_equal(np.asarray(pex.to_pillow(image)), array)
    assert np.array_equal(np.asarray(pex.from_pillow(pillow.fromarray(array))), array)


def test_arrays_are_shared_where_they_can_be_and_outlive_the_picture():
    array = scene(64, 64, 4)
    image = pex.from_array(array)
    assert np.asarray(image).__array_interface__["data"][0] == array.__array_interface__["data"][0]
    assert np.asarray(pex.from_array((ctypes.c_uint8 * 4 * 3)())).shape == (3, 4)
    bgr = np.ascontiguousarray(scene(64, 64)[:, :, ::-1])
    assert np.array_equal(np.asarray(pex.from_array(bgr, "BGR")), bgr[:, :, ::-1])
    view = np.asarray(pex.from_array(scene(500, 500)).resize(max_side=100))
    assert view.mean() > 0  # the picture is gone, its pixels are not


@pytest.mark.parametrize("view", [np.s_[::-1], np.s_[:, ::-1], np.s_[::2, ::3], np.s_[:, :, ::-1]])
def test_arrays_of_any_strides(view):
    array = scene(40, 30)[view]
    assert np.array_equal(np.asarray(pex.from_array(array)), array)


def test_a_profile_of_other_pixels_is_not_taken_over():
    profile = ImageCms.ImageCmsProfile(ImageCms.createProfile("sRGB")).tobytes()
    profile = profile.replace(b"rXYZ", b"swap").replace(b"gXYZ", b"rXYZ").replace(b"swap", b"gXYZ")
    for mode, kept in [("RGB", profile), ("L", None)]:  # Pillow's convert keeps the one that was there before
        image = pillow.new(mode, (8, 8))
        image.info["icc_profile"] = profile
        data = pex.from_pillow(image).encode().data
        assert pillow.open(io.BytesIO(data)).info.get("icc_profile") == kept


def test_resizes_as_pillow_does():
    array = scene(400, 300)
    for arguments, size in [
        ({"max_side": 200}, (200, 150)),
        ({"min_side": 150}, (200, 150)),
        ({"width": 100}, (100, 75)),
        ({"height": 600}, (800, 600)),
        ({"size": (90, 110)}, (90, 110)),
    ]:
        result = np.asarray(pex.from_array(array).resize(**arguments)).astype(int)
        reference = np.asarray(pillow.fromarray(array).resize(size, pillow.LANCZOS)).astype(int)
        assert result.shape == reference.shape
        assert np.abs(result - reference).max() <= 2
    assert pex.from_array(array).resize(fit=(100, 100)).size == (100, 100)
    assert pex.from_array(array).resize(fill=(100, 100)).size == (100, 100)


def test_cuts_turns_and_joins():
    array = scene(60, 40)
    image = pex.from_array(array)
    assert np.array_equal(np.asarray(image.crop((10, 5, 40, 25))), array[5:25, 10:40])
    for degrees, turns in [(90, -1), (180, 2), (270, 1), (-90, 1), (360, 0)]:
        assert np.array_equal(np.asarray(image.turn(degrees)), np.rot90(array, turns))
    tiles = image.split(rows=2, columns=3)
    assert [[tile.size for tile in row] for row in tiles] == [[(20, 20)] * 3] * 2
    assert np.array_equal(np.asarray(tiles[1][2]), array[20:40, 40:60])
    assert image.join(image).size == (120, 40)
    assert image.join(image, vertical=True).size == (60, 80)


@pytest.mark.parametrize("format, budget", [("jpeg", 60_000), ("webp", 40_000), ("avif", 20_000), ("heif", 20_000)])
def test_keeps_a_byte_budget(format, budget):
    image = pex.from_array(scene(1200, 900))
    result = image.encode(format, max_bytes=budget)
    assert budget * 0.6 < len(result.data) <= budget and len(result) == len(result.data)
    assert 0 < result.quality < 1 and result.size == (1200, 900)
    assert pex.open(result.data).size == (1200, 900)
    data = pex.shrink(image.encode("png").data, max_side=600, max_bytes=20_000, format=format)
    assert len(data) <= 20_000 and pex.open(data).size == (600, 450)


def test_keeps_a_byte_budget_without_alpha_or_loss():
    clear = pex.from_array(np.zeros((90, 120, 4), np.uint8))
    assert np.asarray(pex.open(clear.encode("webp", max_bytes=2000, alpha=False).data)).min() > 250
    small = pex.from_array(scene(300, 200)).encode("png", max_bytes=10_000)
    assert small.quality is None and len(small) <= 10_000 and decoded(small.data).shape == small.size[::-1] + (3,)


def test_saves_whole_files(photo, tmp_path):
    image = pex.open(photo)
    saved = image.save(tmp_path / "out" / "small.png")
    assert (tmp_path / "out" / "small.png").read_bytes() == saved.data
    with pytest.raises(OSError):
        image.save("/proc/nothing/small.jpg")


def test_errors_say_what_and_are_of_pythons_kinds(tmp_path, photo, monkeypatch):
    monkeypatch.setenv("XDG_CACHE_HOME", str(tmp_path))
    text = tmp_path / "notes.jpg"
    text.write_text("no picture")
    cases = [
        (lambda: pex.open(tmp_path / "none.jpg"), FileNotFoundError, "no-such-file"),
        (lambda: pex.open(tmp_path), IsADirectoryError, "is-folder"),
        (lambda: pex.open(text), pex.NotAnImage, "not-an-image"),
        (lambda: pex.open(b""), pex.NotAnImage, None),
        (lambda: pex.open(io.StringIO("text")), TypeError, None),
        (lambda: pex.open(photo).resize(), ValueError, "bad-argument"),
        (lambda: pex.open(photo).encode("nonsense"), ValueError, "bad-argument"),
        (lambda: pex.open(photo).encode("jpeg", quality=85), ValueError, "bad-argument"),
        (lambda: pex.open(photo).crop((900, 900, 950, 950)), ValueError, "bad-argument"),
        (lambda: pex.from_array(np.zeros((0, 4, 3), np.uint8)), ValueError, "bad-argument"),
        (lambda: pex.from_array(np.zeros((4, 4, 2), np.uint8)), ValueError, "bad-argument"),
        (lambda: pex.from_array(np.zeros((4, 4, 3))), TypeError, None),
        (lambda: pex.open(photo).resize(max_side="wide"), TypeError, None),
        (lambda: pex.open(photo).resize(max_side=float("nan")), ValueError, "bad-argument"),
        (lambda: pex.open(photo).resize(size=(1e9, 1e9)), pex.LimitExceeded, "over-limit"),
        (lambda: pex.open(photo).resize(size=(-5, 10)), ValueError, "bad-argument"),
        (lambda: pex.open(photo).encode(metadata="all"), ValueError, "bad-argument"),
        (lambda: pex.open(photo).encode(max_bytes=10), pex.BudgetTooSmall, "budget-too-small"),
        (lambda: pex.open(12), TypeError, None),
        (lambda: pex.shrink(photo, max_side=float("nan")), ValueError, "bad-argument"),
        (lambda: pex.open(photo).rotate(float("nan")), ValueError, "bad-argument"),
        (lambda: pex.open(photo).watermark(pex.open(photo), opacity=2), ValueError, "bad-argument"),
        (lambda: pex.open(photo).key((0, 0, 0), tolerance=-1), ValueError, "bad-argument"),
        (lambda: pex.open("a\0b"), ValueError, None),
        (lambda: pex.open(closed(photo)), ValueError, None),
        (lambda: pex.from_array(np.broadcast_to(np.uint8(1), (60000, 60000, 3))), pex.LimitExceeded, "over-limit"),
        (lambda: pex.from_array(np.zeros((4, 4, 3), np.uint16)), TypeError, None),
        (lambda: pex.from_array(None), TypeError, None),
        (lambda: memoryview(pex.open(photo)).__setitem__((0, 0, 0), 1), TypeError, None),
        (lambda: pex.open(photo).save(tmp_path / "unnamed"), ValueError, "bad-argument"),
        (lambda: pex.open(photo).apply_lut(photo.parent / "none.cube"), FileNotFoundError, "no-such-file"),
        (lambda: pex.open(photo).convolve([1, 2]), ValueError, "bad-argument"),
        (lambda: pex.open(photo).watermark(pex.open(photo), position="Nowhere"), ValueError, "bad-argument"),
        (lambda: pickle.loads(pickle.dumps(pex.open(photo))[:-5000]), Exception, None),
        (lambda: pex.Canvas((10**6, 10**6)).draw(), pex.LimitExceeded, "over-limit"),
        (lambda: pex.Canvas((2.5, 4)).draw(), TypeError, None),
        (lambda: pex.Canvas((4, 10**30)).to_json(), ValueError, "bad-argument"),
        (lambda: pex.Canvas((4, 4), [pex.CanvasLayer(url="file:///none.jpg")]).draw(), ValueError, "bad-argument"),
        (lambda: pex.Canvas((4, 4), [pex.CanvasLayer(pex.open(photo), position="in")]).draw(), ValueError, None),
        (lambda: Composer.from_json('{"id": 3}'), ValueError, "bad-argument"),
        (lambda: Composer().snap(Layer("text"), (0, 0), (9, 9)), ValueError, "bad-argument"),
        (lambda: pex.StoredCache("..")["a"], KeyError, None),
        (lambda: pex.StoredCache("cache").path("../a"), ValueError, "bad-argument"),
        (lambda: pex.ImageCache().get_or_make("a", lambda: None), TypeError, None),
        (lambda: pex.ImageCache().get_or_make("a", lambda: 1 / 0), ZeroDivisionError, None),
        (lambda: pex.Metadata().set_exif(1, "x", "place"), ValueError, "bad-argument"),
        (lambda: list(pex.pdf_pages(photo)), pex.MissingModule, "missing-module"),
    ]
    for call, kind, code in cases:
        with pytest.raises(kind) as raised:
            call()
        if code:
            assert isinstance(raised.value, pex.Error) and raised.value.code == code


def test_a_cut_picture_is_told_and_shown(photo):
    whole = photo.read_bytes()
    with pytest.raises(pex.Truncated) as raised:
        np.asarray(pex.open(whole[: len(whole) // 2]).resize(max_side=100))
    assert 0.1 < raised.value.fraction < 0.9
    assert np.asarray(raised.value.image).shape == (480, 640, 3)


def test_what_the_photo_says_stays_with_it():
    exif = pillow.Exif()
    exif[0x010F] = "Maker"
    exif.get_ifd(0x8825)[1] = "N"
    photo = pex.open(encoded(scene(64, 48), exif=exif.tobytes()))
    assert photo.info["TIFF"]["Make"] == "Maker"
    for keep, maker, place in [("keep", True, True), ("no-location", True, False), ("none", False, False)]:
        for picture in (photo.resize(max_side=32), pickle.loads(pickle.dumps(photo))):
            said = pillow.open(io.BytesIO(picture.encode(metadata=keep).data)).getexif()
            assert (said.get(0x010F) == "Maker", bool(said.get_ifd(0x8825))) == (maker, place)
    given = pickle.loads(pickle.dumps(photo.metadata))
    given.set_exif(0x9003, "2021:07:14 18:30:05")
    given.set_exif(0x8827, 400)
    given.set_exif(1, None, "gps")
    given.set_iptc(25, ["lake", "dusk"])
    given.set_xmp("http://ns.adobe.com/xap/1.0/", "Rating", "5")
    again = pex.open(pex.from_array(scene(64, 48)).encode(metadata=given).data)
    said = pillow.open(io.BytesIO(again.encode().data)).getexif()
    assert (said[0x010F], said.get_ifd(0x8825), said.get_ifd(0x8769)[0x9003]) == ("Maker", {}, "2021:07:14 18:30:05")
    assert (said.get_ifd(0x8769)[0x8827], again.metadata.get_exif(0x8827)) == (400, 400)
    assert again.metadata.get_iptc(25) == ["lake", "dusk"] and again.metadata.get_exif(0x829A) is None
    assert again.metadata.get_xmp("http://ns.adobe.com/xap/1.0/", "Rating") == "5"


def test_results_go_to_other_processes():
    encoded = pex.from_array(scene(64, 48)).encode(max_bytes=2000)
    again = pickle.loads(pickle.dumps(encoded))
    assert [(e.data, e.format, e.quality, e.size) for e in (again,)] == [(encoded.data, "jpeg", encoded.quality, (64, 48))]
    for function in (pex.set_threads, pex.Image.load, pex.shrink, pex.open):
        assert pickle.loads(pickle.dumps(function)) is function
    limits = pex.get_limits()
    names = [name for name in dir(limits) if name.startswith("max_")]
    for number, name in enumerate(names):
        setattr(limits, name, number + 1)
    again = pickle.loads(pickle.dumps(limits))
    assert [getattr(again, name) for name in names] == [1, 2, 3, 4, 5, 6, 7, 8]


def test_shrink_hands_on_what_is_small_enough():
    data = encoded(scene(64, 48))
    assert pex.shrink(data, max_side=64, max_bytes=len(data)) is data
    assert pex.shrink(data, max_side=64, max_bytes=len(data), metadata="none") is not data


def linear(v):
    return np.where(v <= 0.04045, v / 12.92, ((v + 0.055) / 1.055) ** 2.4)


def test_pixels_are_changed_as_numpy_would():
    array = scene(48, 40)
    image = pex.from_array(array)
    keyed = np.asarray(pex.from_array(np.where(array > 128, 255, 0).astype(np.uint8)).key((255, 255, 255)))
    assert np.array_equal(keyed[..., 3] == 0, (array > 128).all(axis=-1))
    assert np.allclose(image.average_color()[:3], array.mean(axis=(0, 1)), atol=1.5)
    assert np.asarray(image.fill((10, 20, 30)))[5, 5].tolist()[:3] == [10, 20, 30]
    kernel = np.asarray(image.convolve([0, 0, 0, 0, 3, 0, 0, 0, 0]))
    assert np.array_equal(kernel[1:-1, 1:-1, :3], array[1:-1, 1:-1])
    brighter = np.asarray(image.exposure(1)).astype(float)[..., :3] / 255
    assert np.abs(linear(brighter) - np.minimum(1, 2 * linear(array / 255))).max() < 0.02
    marked = np.asarray(image.watermark(image.resize(max_side=12), position="Top Left"))
    assert np.array_equal(marked[20:, 20:, :3], array[20:, 20:]) and not np.array_equal(marked[:8, :8, :3], array[:8, :8])
    grid = np.array(image.color_grid(4, 2))
    assert grid.shape == (2, 4, 4)
    masked = np.asarray(image.mask(pex.from_array(np.full((40, 48), 128, np.uint8))))
    assert np.abs(masked[..., 3].astype(int) - 128).max() <= 1


def test_canvases_lay_pictures_over_each_other(photo):
    canvas = pex.Canvas((100, 80))
    canvas.add(pex.from_array(np.full((20, 40, 3), (255, 0, 0), np.uint8)))
    blue = pex.from_array(np.full((10, 20, 3), (0, 0, 255), np.uint8))
    canvas.add(blue, position=(0.9, 0.25), conforming="none", opacity=np.float32(0.5))
    expected = np.full((80, 100, 4), (255, 0, 0, 255))
    expected[55:65, 80:100] = (127, 0, 128, 255)
    assert np.abs(np.asarray(canvas.draw()) - expected).max() <= 1
    assert not np.asarray(pex.Canvas((3, 2)).draw()).any()
    document = pex.Canvas((64, 48), [pex.CanvasLayer(url=photo.as_uri(), opacity=0.5)]).to_json()
    assert pex.Canvas.from_json(document).to_json() == document
    assert np.abs(np.asarray(pex.Canvas.from_json(document).draw())[..., 3].astype(int) - 128).max() <= 1


def test_composers_snap_and_are_stored(tmp_path, monkeypatch):
    monkeypatch.setenv("XDG_DATA_HOME", str(tmp_path))
    page = Composer(ratio=2, layers=[Layer("text", text=Text("Hello hello")), Layer("shape", transform=Transform((0.3, 0.1)))])
    page.guides.append(Guide("vertical", 0.2))
    assert page.snap(page.layers[0], at=(0.295, 0.04), shown=(1000, 500)) == (0.3, None)
    assert page.layer_guides(page.layers[1]) == ([0.3], [0.1])
    lines = {(guide.orientation, round(guide.location, 9)) for guide in page.all_guides([0.1])}
    assert lines >= {("vertical", x) for x in (0.2, 0, 0.4, -0.4, 0.3)} | {("horizontal", y) for y in (0, 0.2, -0.2, 0.1)}
    assert page.replaced({"HELLO": "Good", "good": "By"}).layers[0].text.text == "By By"
    page.layers[0].transform.rotation = float("inf")
    assert Composer.from_json(page.to_json()) == page and page.layers[0].copy().id != page.layers[0].id

    store, other = ComposerStore("Studio"), ComposerStore("Studio")
    store.composers, store.selected_id = [page], page.id
    store.save()
    assert ComposerStore("Studio").composers == [page] and ComposerStore("Studio").selected_id == page.id
    with pytest.raises(pex.ChangedElsewhere):
        other.save()
    other.reload()
    assert other.composers == [page] and other.problem == ""


def test_caches_make_a_picture_once(tmp_path, monkeypatch):
    monkeypatch.setenv("XDG_CACHE_HOME", str(tmp_path))
    array, made = scene(40, 30), []

    def make():
        made.append(1)
        return pex.from_array(array)

    memory = pex.ImageCache(max_images=2)
    sizes = [memory.get_or_make(name, make, max_side=20).size for name in "aabaca"]
    assert sizes == [(20, 15)] * 6 and len(made) == 3 and len(memory) == 2
    cache = pex.StoredCache("thumbs")
    cache["a/b"] = pex.from_array(array)
    assert np.array_equal(np.asarray(pex.StoredCache("thumbs")["a/b"]), array)
    assert list(cache) == ["a/b"] and len(cache) == 1 and "a/b" in cache and "c" not in cache and cache.get("c") is None
    assert cache.path("a/b").parent.parent == tmp_path / "thumbs"
    assert cache.get_or_make("a/b", make).size == (40, 30) and len(made) == 3


def test_interrupts_stop_a_long_call(tmp_path):
    noise = pex.from_array(np.random.default_rng(1).integers(0, 255, (4000, 4000, 3), np.uint8))
    photo = pex.open(noise.encode(quality=1).data)

    def interrupt(*_):
        raise KeyboardInterrupt

    before = signal.signal(signal.SIGALRM, interrupt)
    try:
        for call in (lambda: noise.save(tmp_path / "noise.jpg", max_bytes=5_000_000, effort="best"), photo.load):
            signal.setitimer(signal.ITIMER_REAL, 0.05)
            with pytest.raises(KeyboardInterrupt):
                call()
            assert pex._core._running() == 1  # it was not done
            while pex._core._running():
                os.sched_yield()
    finally:
        signal.signal(signal.SIGALRM, before)
    assert not (tmp_path / "noise.jpg").exists()
    assert np.asarray(photo).shape == (4000, 4000, 3)  # it is decoded again, whole


def test_awaitable_forms(photo, tmp_path):
    async def work():
        small = await pex.aio.resize(await pex.aio.open(photo), max_side=80)
        await pex.aio.save(small, tmp_path / "small.png")
        return len(await pex.aio.shrink(photo, max_side=80, max_bytes=2000))

    assert asyncio.run(work()) <= 2000
    assert pillow.open(tmp_path / "small.png").size == (80, 60)


def test_limits(photo):
    before = pex.get_limits()
    tight = pex.get_limits()
    tight.max_pixels = 1000
    pex.set_limits(tight)
    try:
        with pytest.raises(pex.LimitExceeded):
            pex.open(photo)
    finally:
        pex.set_limits(before)


def test_threads_share_pictures(photo):
    image = pex.open(photo)
    with ThreadPoolExecutor(4) as threads:
        results = list(threads.map(lambda i: image.resize(max_side=100 + i % 3).encode().data, range(40)))
    assert len({bytes(result) for result in results}) == 3


def sized(path):
    return len(pex.open(path).resize(max_side=64).encode("jpeg", max_bytes=3000).data)


@pytest.mark.parametrize("way", ["fork", "spawn", "forkserver"])
def test_workers_of_all_kinds(photo, way):
    np.asarray(pex.open(photo).resize(max_side=300))  # the parent's threads are there
    with ProcessPoolExecutor(2, mp_context=get_context(way)) as workers:
        assert len(set(workers.map(sized, [photo] * 8))) == 1


def test_threads_can_be_bounded(photo):
    before = pex.get_threads()
    wide = pex.open(photo).resize(max_side=300).encode().data
    pex.set_threads(1)
    try:
        assert pex.get_threads() == 1
        assert pex.open(photo).resize(max_side=300).encode().data == wide
        assert threading.active_count() >= 1
    finally:
        pex.set_threads(0)
    assert pex.get_threads() == before


def test_starts_without_numpy():
    code = "import sys; sys.modules['numpy'] = None; import peximage; print(peximage.__version__)"
    told = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True)
    assert told.stdout.strip() == pex.__version__
