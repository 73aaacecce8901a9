"""Option and record texts, results, the library's version."""

import subprocess
import sys

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import quorvio
from quorvio import _errors, _library, _options, _records

settings.register_profile("suite", max_examples=50, deadline=None, database=None)
settings.load_profile("suite")

KEYS = st.from_regex(r"[a-z]([a-z0-9_]*[a-z0-9])?", fullmatch=True)
TEXTS = st.one_of(st.text(), st.text("a\n\0|=%0A "))
VALUES = st.one_of(TEXTS, st.integers(), st.booleans(), st.lists(TEXTS, max_size=3))


@given(st.dictionaries(KEYS, VALUES, max_size=5))
def test_a_value_never_becomes_another_option(options: dict[str, _options.Option]) -> None:
    try:
        text = _options.option_text(options).decode("utf-8", "surrogateescape")
    except quorvio.InvalidArgumentError:
        return
    wanted = [
        (key.replace("_", "-"), str(value).lower() if isinstance(value, bool) else str(value))
        for key, values in options.items()
        for value in (values if isinstance(values, (list, tuple)) else (values,))
    ]
    assert [tuple(line.split(" ", 1)) for line in text.split("\n") if line] == wanted


def escaped(text: str) -> str:
    return text.replace("%", "%25").replace("\n", "%0A").replace("|", "%7C").replace("=", "%3D")


@given(st.lists(st.dictionaries(KEYS, TEXTS, min_size=1, max_size=4), max_size=4))
def test_records_are_read_as_they_were_written(records: list[dict[str, str]]) -> None:
    lines = ["|".join(f"{key}={escaped(value)}" for key, value in record.items()) for record in records]
    assert list(_records.records("\n".join(lines))) == records
    assert [_records.device_of(record).properties for record in records] == records


def test_each_result_has_its_exception() -> None:
    for result in range(1, 15):
        error = _errors.error_of(result, "what")
        assert error.code == result and str(error).startswith("what: ") and type(error) is not quorvio.Error
    assert str(_errors.error_of(99, "what")) == "what: result 99"


def test_the_package_has_the_version_of_its_library() -> None:
    assert quorvio.__version__ == "%d.%d.%d" % quorvio.library_version


@pytest.mark.parametrize("version", [(1, 9, 9), (2, 1, 1), (3, 0, 0)])
def test_an_unfit_library_is_named(version: tuple[int, int, int]) -> None:
    with pytest.raises(ImportError, match=r"version 2\.1\.2 or later of 2\.x; found %d\.%d\.%d" % version):
        _library.check_version(version)


def test_a_missing_library_is_named() -> None:
    code = "import ctypes; ctypes.CDLL = open; import quorvio"
    run = subprocess.run([sys.executable, "-c", code], stderr=subprocess.PIPE, text=True)
    assert "ImportError: quorvio needs the shared library libquorvio.so.2" in run.stderr
