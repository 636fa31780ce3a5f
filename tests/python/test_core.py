"""quorvel.core against plain Python and NumPy."""

from collections.abc import Callable

import numpy as np
import pytest
from quorvel import core

CURVE = core.Curve([core.Key(1, 0.0, core.key_linear), core.Key(11, 5.0, core.key_linear)], extrapolate=True)


@pytest.mark.parametrize("times", [
    np.arange(-6, 30, 0.5).reshape(3, 4, 6),
    np.arange(-6, 30, 0.5).reshape(4, 18).T[::2],
    np.arange(5, dtype=np.int16),
    np.zeros((0, 3)),
    np.float32(3),
])
def test_curve_takes_times_of_any_shape_and_layout(times: "np.ndarray[tuple[int, ...], np.dtype[np.float64]]") -> None:
    values = CURVE.value(times)
    assert np.shape(values) == np.shape(times)
    np.testing.assert_allclose(values, (np.asarray(times, float) - 1) / 2)


@pytest.mark.parametrize("call, error, text", [
    (lambda: CURVE.value(["x"]), TypeError, "t: numbers"),
    (lambda: CURVE.value([1j]), TypeError, "t: numbers"),
    (lambda: core.Curve([core.Key(1, 0), core.Key(1, 1)]), core.NotCompilable, "equal key times"),
    (lambda: core.Key(1, 0, 256), ValueError, "kind"),
])
def test_errors_name_what_is_wrong(call: Callable[[], object], error: type[Exception], text: str) -> None:
    with pytest.raises(error, match=text):
        call()
