"""Option texts: one option a line, KEY VALUE."""

from quorvio._errors import Error, InvalidArgumentError

Scalar = str | int | bool
Option = Scalar | list[Scalar] | tuple[Scalar, ...]


def encoded(text: str, refused: str = "\0", error: type[Error] = InvalidArgumentError) -> bytes:
    """A text for the library, which ends it at its first zero byte. Paths may hold any bytes."""
    if any(character in text for character in refused):
        raise error(f"{text!r} holds a zero byte or another character that it must not have")
    try:
        return text.encode("utf-8", "surrogateescape")
    except UnicodeEncodeError as reason:
        raise error(f"{text!r} cannot be encoded") from reason


def option_text(options: dict[str, Option]) -> bytes:
    """The options as the library takes them: underscores in keys become hyphens, True and False become
    words, and an option that may be repeated takes several values. A value cannot smuggle in a further
    option: line feeds and zero bytes are refused."""
    return b"\n".join(
        _line(key.replace("_", "-"), value) for key, values in options.items() for value in _each(values)
    )


def _each(values: Option) -> list[Scalar] | tuple[Scalar, ...]:
    return values if isinstance(values, (list, tuple)) else (values,)


def _line(key: str, value: Scalar) -> bytes:
    if not key:
        raise InvalidArgumentError("an option without a key")
    if isinstance(value, bool):
        value = "true" if value else "false"
    if not isinstance(value, (str, int)):
        raise InvalidArgumentError(f"option {key}: {value!r} is not a text, a whole number, True or False")
    return encoded(key, "\0\n\r\t\v\f ") + b" " + encoded(str(value), "\0\n")
