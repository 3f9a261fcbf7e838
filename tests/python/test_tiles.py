"""Blocks of large arrays, on threads and with dask."""

import numpy as np
import pytest
import qel
from conftest import TABLE, arguments_of, picture

da = pytest.importorskip("dask.array")

WHOLE = {"flip", "flip_image_and_bits", "rotate", "rotate_paste", "skew", "quad", "transform",
         "transform_paste", "circle", "jitter", "noise", "copy", "resample", "resize", "crop", "pad",
         "turn", "overlay", "text"}
EVEN = {"erode": {"size": 4}, "median": {"size": 6}, "gaussian_blur": {"level": 0},
        "filter": {"kernel": np.arange(49).reshape(7, 7) % 5, "divisor": 40}}


@pytest.mark.parametrize("row", TABLE, ids=lambda row: row["python"])
def test_blocks_give_the_bytes_of_the_whole(row):
    function = getattr(qel, row["python"])
    for channels in row["channels"]:
        image = picture(channels)
        for arguments in (arguments_of(row, channels), EVEN.get(row["python"])):
            if arguments is None:
                continue
            if row["python"] in WHOLE:
                with pytest.raises(qel.ArgumentError, match="whole picture"):
                    qel.tiles.map_blocks(function, image, **arguments)
                with pytest.raises(qel.ArgumentError, match="whole picture"):
                    qel.tiles.map_blocks(function, da.from_array(image, chunks=20), **arguments)
                continue
            whole = function(image, **arguments)
            for block in ((1, 50), (2, 200), (7, 31), (64, 64)):
                blocks = qel.tiles.map_blocks(function, image, block=block, threads=3, **arguments)
                np.testing.assert_array_equal(blocks, whole, err_msg=f"{channels}, {block}")
            out = np.empty_like(whole)
            assert qel.tiles.map_blocks(function, image, block=(23, 19), out=out, **arguments) is out
            np.testing.assert_array_equal(out, whole)
            chunks = (19, 31) + image.shape[2:]
            lazy = qel.tiles.map_blocks(function, da.from_array(image, chunks=chunks), **arguments)
            assert lazy.shape == whole.shape and lazy.dtype == np.uint8
            np.testing.assert_array_equal(lazy.compute(scheduler="threads"), whole)


def test_wrong_arguments_are_told_before_any_block():
    image = picture(3)
    with pytest.raises(TypeError, match="unexpected keyword argument 'sizes'"):
        qel.tiles.map_blocks(qel.median, image, sizes=3)
    for array in (image, da.from_array(image)):
        with pytest.raises(qel.ArgumentError, match="is no operation of qel"):
            qel.tiles.map_blocks(np.median, array)
    with pytest.raises(qel.ArgumentError, match=r"block takes .* not \(0, 8\)"):
        qel.tiles.map_blocks(qel.median, image, block=(0, 8))
    with pytest.raises(qel.ArgumentError, match="out is uint8 of"):
        qel.tiles.map_blocks(qel.median, image, out=image[:5].copy())
    with pytest.raises(qel.ArgumentError, match="to be cut alike"):
        qel.tiles.map_blocks(qel.subtract, image, other=picture(3)[:5])
    with pytest.raises(qel.ArgumentError, match="out overlaps"):
        own = image.copy()
        qel.tiles.map_blocks(qel.negative, own, out=own)
