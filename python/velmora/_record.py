"""What all records share: their JSON."""

import dataclasses
import functools
import json
import typing
from typing import Any, ClassVar, Mapping, TypeVar

Self = TypeVar("Self", bound="Record")


class Record:
    """A dataclass with a JSON object for each of its fields' values."""

    _keys: ClassVar[Mapping[str, str]]
    _list_key: ClassVar[str]

    @classmethod
    def from_json(cls: type[Self], text: str) -> Self:
        """Reads what the library writes. A missing key leaves the field as it starts."""
        return cls._read(json.loads(text))

    @classmethod
    def list_from_json(cls: type[Self], text: str) -> list[Self]:
        """As `from_json`, for a list, which is the only value of an object."""
        return [cls._read(each) for each in json.loads(text)[cls._list_key]]

    def to_json(self) -> str:
        """The text that the library reads."""
        return json.dumps({key: getattr(self, name) for name, key in self._keys.items()},
                          default=lambda record: json.loads(record.to_json()))

    @classmethod
    def _read(cls: type[Self], values: Mapping[str, Any]) -> Self:
        readers = _readers(cls)  # type: ignore[arg-type] # functools cannot tell that a class is hashable
        return cls(**{name: read(values[key]) for name, key, read in readers if key in values})


@functools.cache
def _readers(record: type[Record]) -> list[tuple[str, str, Any]]:
    """For each field its name, its key and what makes its value of that of JSON."""
    kinds = typing.get_type_hints(record)
    return [(each.name, record._keys[each.name], _reader(kinds[each.name]))
            for each in dataclasses.fields(record)]


def _reader(kind: Any) -> Any:
    if typing.get_origin(kind) is list:
        read = _reader(typing.get_args(kind)[0])
        return lambda values: [read(value) for value in values]
    if kind is bool:
        return lambda value: value in (True, "true")  # the library writes flags as text
    return kind._read if issubclass(kind, Record) else kind
