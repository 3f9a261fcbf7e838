"""Bad input, memory, threads."""

import concurrent.futures
import gc
import mmap
import time
import warnings

import numpy as np
import pytest
import qel
from conftest import TABLE, arguments_of, picture
from hypothesis import given, settings
from hypothesis import strategies as st

GOOD = np.zeros((5, 6, 3), np.uint8)


@pytest.mark.parametrize("call, argument, message", [
    (lambda: qel.median([[1]]), "image", "is a list; an array of pixels is needed"),
    (lambda: qel.median(GOOD.astype(np.float32)), "image", "pixels of float32; .* from 0 to 1"),
    (lambda: qel.median(GOOD[None]), "image", r"shape \(1, 5, 6, 3\); \(h, w\)"),
    (lambda: qel.median(GOOD[..., :2]), "image", r"shape \(5, 6, 2\)"),
    (lambda: qel.median(GOOD[..., :1]), "image", r"array\[\.\.\., 0\] is such a one"),
    (lambda: qel.median(GOOD[:0]), "image", "no pixels"),
    (lambda: qel.median(GOOD, size=0), "size", "size=0 does not fit: size takes a whole number"),
    (lambda: qel.median(GOOD, size=2.5), "size", "size=2.5 does not fit"),
    (lambda: qel.median(GOOD, size=[3]), "size", r"takes a whole number .* not \[3\]"),
    (lambda: qel.median(GOOD, order="gbr"), "order", "not 'gbr'"),
    (lambda: qel.median(GOOD, out=np.zeros((5, 5, 3), np.uint8)), "out",
     r"has the shape \(5, 5, 3\), the result has \(5, 6, 3\)"),
    (lambda: qel.median(GOOD, out=np.broadcast_to(np.uint8(1), (5, 6, 3))), "out", "read-only"),
    (lambda: qel.add(GOOD, GOOD[:3]), None, "6 x 3 pixels and must have 6 x 5"),
    (lambda: qel.add(GOOD, GOOD[..., 0]), None, "8 bits and the picture 24"),
    (lambda: qel.resample(GOOD), None, "give width=, height= or both"),
    (lambda: qel.rotate(GOOD, angle=3, method="cubicle"), "method", "did you mean cubic"),
    (lambda: qel.filter(GOOD, kernel=[1, 2]), "kernel", "2 weights are no square"),
    (lambda: qel.filter(GOOD, kernel=["a"]), "kernel", "takes numbers"),
    (lambda: qel.filter(GOOD, kernel=[[1.5]]), "kernel", "1.5 is no whole number"),
    (lambda: qel.transform(GOOD, affine=[1, 2]), "affine", "takes 6 numbers, there are 2"),
    (lambda: qel.add(GOOD, None), "other", "is a NoneType; an array of pixels is needed"),
    (lambda: qel.text(GOOD, text="\ud800"), "text", r"takes text, not '\\ud800'"),
    (lambda: qel.transform(GOOD, map=GOOD), "map", r"not one of shape \(5, 6, 3\)"),
    (lambda: qel.imencode(".jpg", GOOD, quality="high"), "quality", "from 1 to 100, not 'high'"),
    (lambda: qel.imdecode("text"), "data", "the bytes of a picture file, not 'text'"),
    (lambda: qel.lut(GOOD, table=[1, 2]), "table", "256 whole numbers"),
    (lambda: qel.equal(GOOD, colour=(1, 2, 300)), "colour", r"\(red, green, blue\)"),
    (lambda: qel.set_image_alpha(GOOD, alpha=3), "image", "has 3 channels, it works on 4"),
])
def test_bad_input_is_named_with_what_would_be_right(call, argument, message):
    with pytest.raises(ValueError, match=message) as caught:
        call()
    assert isinstance(caught.value, qel.ArgumentError) and caught.value.operation
    assert argument is None or caught.value.argument == argument
    assert not GOOD.any()


def test_overlapping_out_is_refused_before_anything_is_written():
    memory = np.arange(4000, dtype=np.uint8).copy()
    image, out = memory[:3000].reshape(50, 60), memory[500:3500].reshape(50, 60)
    before = memory.copy()
    with pytest.raises(qel.ArgumentError, match="out overlaps the image"):
        qel.negative(image, out=out)
    with pytest.raises(qel.ArgumentError, match="out overlaps other"):
        qel.add(image.copy(), image, out=image)
    np.testing.assert_array_equal(memory, before)
    channels = picture(3).copy()
    qel.negative(channels[..., 0], out=channels[..., 1])  # side by side, but nothing in common
    np.testing.assert_array_equal(channels[..., 1], 255 - picture(3)[..., 0])


def test_large_weights_are_numbers_too():
    for weight in (100_000, 8_000_000):
        weighed = qel.filter(picture(3), kernel=[[weight]], divisor=weight)
        np.testing.assert_array_equal(weighed, picture(3))


def test_files_come_back_and_their_errors_are_os_errors(tmp_path):
    for channels in (1, 3, 4):
        for order in ("rgb", "bgr"):
            qel.imwrite(tmp_path / "a\udcff.png", picture(channels)[:, ::-1], order=order)
            back = qel.imread(tmp_path / "a\udcff.png", order=order)
            np.testing.assert_array_equal(back, picture(channels)[:, ::-1])
    data = qel.imencode(".png", picture(3))
    np.testing.assert_array_equal(qel.imdecode(memoryview(data)), picture(3))
    assert qel.show(picture(3))._repr_png_() == data
    assert qel.show(picture(3), picture(1))._repr_html_().count("<img") == 2
    for call in (lambda: qel.imread(tmp_path / "no\udcffne.png"), lambda: qel.imdecode(b"nothing"),
                 lambda: qel.imwrite(tmp_path / "no" / "a.png", picture(3)),
                 lambda: qel.imwrite(tmp_path / "a.jpg", picture(4)[:, :0])):
        with pytest.raises((OSError, ValueError)) as caught:
            call()
        assert isinstance(caught.value, (qel.FileError, qel.ArgumentError))


def test_copies_warn_only_those_who_ask():
    image, strided = picture(3), picture(3)[:, ::2]
    with warnings.catch_warnings():
        warnings.simplefilter("error", qel.CopyWarning)
        qel.blur(image)
        qel.blur(image[::-1, 3:])
        qel.median(image, order="bgr")
        with pytest.raises(qel.CopyWarning, match="blur: .* do not lie side by side"):
            qel.blur(strided)
        with pytest.raises(qel.CopyWarning, match="in the order blue, green, red"):
            qel.median(image)
        with pytest.raises(qel.CopyWarning, match="beyond their rows"):
            qel.gray_scale(picture(1))
        warnings.simplefilter("error", qel.NoteWarning)
        with pytest.raises(qel.NoteWarning, match="subtract: [0-9]+ channel values are 2 or more"):
            qel.subtract(image, picture(3, 1))
        with pytest.raises(qel.NoteWarning, match="JPEG holds no alpha"):
            qel.imencode(".jpg", picture(4))


@pytest.mark.parametrize("row", TABLE, ids=lambda row: row["python"])
def test_results_keep_their_memory_and_nothing_else(row):
    function, channels = getattr(qel, row["python"]), row["channels"][-1]
    arguments = arguments_of(row, channels)
    gc.freeze()  # not to be looked at once more for each operation
    image = picture(channels).copy()
    result = function(image, **arguments)
    assert result.flags.writeable and not np.shares_memory(result, image)
    kept = result.copy()
    del image
    gc.collect()
    for _ in range(20):
        function(picture(channels), **arguments)
    np.testing.assert_array_equal(result, kept)


def fenced(shape, at_end):
    """An array whose last, or first, byte borders on memory that cannot be read."""
    page = mmap.PAGESIZE
    size = int(np.prod(shape))
    pages = -(-size // page)
    block = mmap.mmap(-1, (pages + 2) * page)
    array = np.frombuffer(block, np.uint8)
    import ctypes
    libc = ctypes.CDLL(None, use_errno=True)
    for start in (0, (pages + 1) * page):
        address = ctypes.c_void_p(array.ctypes.data + start)
        assert libc.mprotect(address, page, 0) == 0
    first = (pages + 1) * page - size if at_end else page
    return array[first : first + size].reshape(shape)


@pytest.mark.parametrize("row", TABLE, ids=lambda row: row["python"])
def test_nothing_beyond_an_array_is_touched(row):
    function = getattr(qel, row["python"])
    for channels in row["channels"]:
        arguments = arguments_of(row, channels)
        shape = function(picture(channels), **arguments).shape
        # Four-byte pixels lie at multiples of four.
        for at_end in (False, True):
            image = fenced(picture(channels).shape, at_end)
            image[...] = picture(channels)
            out = fenced(shape, at_end)
            np.testing.assert_array_equal(
                function(image, out=out, **arguments), function(picture(channels), **arguments))
            np.testing.assert_array_equal(image, picture(channels))


@given(st.data())
@settings(max_examples=60, deadline=None)
def test_any_slices_give_what_their_copies_give(data):
    row = data.draw(st.sampled_from([r for r in TABLE if r["name"] not in ("copy", "quad")]))
    channels = data.draw(st.sampled_from(row["channels"]))
    steps = data.draw(st.tuples(*[st.sampled_from([1, -1, 2, -3])] * 2))
    whole = picture(channels, 2, 80, 90)
    view = whole[:: steps[0], :: steps[1]][: data.draw(st.integers(1, 25)),
                                           : data.draw(st.integers(1, 25))]
    arguments = arguments_of(row, channels)
    function = getattr(qel, row["python"])
    try:
        expected = function(np.ascontiguousarray(view), **arguments)
    except ValueError as refusal:  # too small for these arguments
        with pytest.raises(type(refusal)):
            function(view, **arguments)
        return
    np.testing.assert_array_equal(function(view, **arguments), expected)


def test_threads_work_at_the_same_time_on_the_same_source():
    image = picture(3)
    calls = [(getattr(qel, row["python"]), arguments_of(row, 3)) for row in TABLE
             if 3 in row["channels"]]
    expected = [function(image, **arguments) for function, arguments in calls]
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        for _ in range(3):
            results = list(pool.map(lambda call: call[0](image, **call[1]), calls))
            for result, wanted in zip(results, expected):
                np.testing.assert_array_equal(result, wanted)


def test_the_interpreter_is_unlocked_meanwhile():
    image = picture(3, 1, 900, 1200)
    with concurrent.futures.ThreadPoolExecutor(1) as pool:
        work = pool.submit(qel.median, image, size=31, order="bgr")
        turns = 0
        while not work.done():
            time.sleep(0.001)
            turns += 1
    assert turns > 3
