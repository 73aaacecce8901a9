"""Callbacks of the library must not call back into it, which a garbage collection inside them might do: through
an abandoned object that closes its channel."""

import gc
from collections.abc import Callable
from functools import wraps
from typing import ParamSpec

Arguments = ParamSpec("Arguments")


def without_collection(function: Callable[Arguments, None]) -> Callable[Arguments, None]:
    """The function, with the garbage collector off while it runs."""

    @wraps(function)
    def guarded(*args: Arguments.args, **kwargs: Arguments.kwargs) -> None:
        enabled = gc.isenabled()
        gc.disable()
        try:
            function(*args, **kwargs)
        finally:
            if enabled:
                gc.enable()

    return guarded
