"""Every operation on every layout of memory, in both orders, against the tool."""

import numpy as np
import pytest
import qel
from conftest import ROUND, ROWS, arguments_of, exchanged, picture, room


def into(array, pixels):
    array[...] = pixels
    return array


@pytest.mark.parametrize("row, channels", ROWS)
def test_every_layout_and_order_gives_what_the_tool_gives(row, channels, by_tool):
    function = getattr(qel, row["python"])
    image, arguments = picture(channels), arguments_of(row, channels)
    expected = by_tool(row, channels)
    before = {name: value.copy() for name, value in arguments.items()
              if isinstance(value, np.ndarray)}
    swapped = {name: exchanged(value) if isinstance(value, np.ndarray) else value
               for name, value in arguments.items()}
    for name, array in room(image.shape):
        given = into(array, image)
        given.setflags(write=False)
        np.testing.assert_array_equal(function(given, **arguments), expected, err_msg=name)
        given.setflags(write=True)
        given = into(given, exchanged(image))
        result = function(given, order="bgr", **swapped)
        np.testing.assert_array_equal(exchanged(result), expected, err_msg=f"{name}, bgr")
    for name, out in room(expected.shape):
        assert function(image, out=out, **arguments) is out
        np.testing.assert_array_equal(out, expected, err_msg=f"out {name}")
        function(exchanged(image), out=out, order="bgr", **swapped)
        np.testing.assert_array_equal(exchanged(out), expected, err_msg=f"out {name}, bgr")
        out[...] = ROUND
        assert out.base is None or (out.base == ROUND).all(), f"round out {name}"
    if expected.shape == image.shape:
        for name, own in room(image.shape):
            assert function(into(own, image), out=own, **arguments) is own
            np.testing.assert_array_equal(own, expected, err_msg=f"in place, {name}")
    for name, value in before.items():
        np.testing.assert_array_equal(arguments[name], value, err_msg=f"{name} is only read")


def test_caller_s_transforms_by_function_by_array_and_by_formula_agree():
    image = picture(3)
    formula = qel.transform(image, affine=[0.5, 0.1, 3, -0.1, 0.7, 4])
    y, x = np.mgrid[: image.shape[0], : image.shape[1]]
    positions = np.stack([0.5 * x + 0.1 * y + 3, -0.1 * x + 0.7 * y + 4], axis=2)
    by_function = qel.transform(image, lambda x, y: (0.5 * x + 0.1 * y + 3, -0.1 * x + 0.7 * y + 4))
    np.testing.assert_array_equal(by_function, formula)
    np.testing.assert_array_equal(qel.transform(image, positions), formula)
    assert qel.transform(image, positions[:9, :7]).shape == (9, 7, 3)
    shifted = qel.transform_paste(image, picture(3, 9), positions)
    np.testing.assert_array_equal(
        shifted, qel.transform_paste(image, picture(3, 9), affine=[0.5, 0.1, 3, -0.1, 0.7, 4]))

    def fails(x, y):
        raise KeyError(x)

    with pytest.raises(KeyError):
        qel.transform(image, fails)
    with pytest.raises(TypeError, match="two numbers"):
        qel.transform(image, lambda x, y: x)
    with pytest.raises(qel.ArgumentError, match="map takes a function"):
        qel.transform(image, np.zeros((3, 4)))
