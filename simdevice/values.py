"""Bus values with an exact type, from plain Python values."""

import dbus
from typing import Any, NamedTuple

_BASIC = {"s": dbus.String, "o": dbus.ObjectPath, "g": dbus.Signature, "b": dbus.Boolean, "y": dbus.Byte,
          "n": dbus.Int16, "q": dbus.UInt16, "i": dbus.Int32, "u": dbus.UInt32, "x": dbus.Int64, "t": dbus.UInt64,
          "d": dbus.Double}


class Typed(NamedTuple):
    """`value` as the bus type `signature`: Typed("a{ss}", {"Method": "dhcp"}), Typed("(ss)", ["a", "b"])."""

    signature: str
    value: Any


def typed(value: Any) -> Typed:
    """The bus type that a plain value most likely means."""
    if isinstance(value, Typed):
        return value
    for kind, signature in ((bool, "b"), (str, "s"), (int, "i"), (float, "d"), (dict, "a{sv}")):
        if isinstance(value, kind):
            return Typed(signature, value)
    if isinstance(value, (list, tuple)):
        strings = all(isinstance(item, str) for item in value)
        return Typed("as" if strings else "av", value)
    raise TypeError(f"no bus type for {value!r}")


def to_dbus(signature: str, value: Any) -> Any:
    if signature in _BASIC:
        return _BASIC[signature](value)
    if signature == "v":
        return _variant(value)
    if signature.startswith("a{"):
        key, inner = dbus.Signature(signature[2:-1])
        pairs = {to_dbus(str(key), k): to_dbus(str(inner), v) for k, v in value.items()}
        return dbus.Dictionary(pairs, signature=signature[2:-1])
    if signature.startswith("a"):
        return dbus.Array([to_dbus(signature[1:], item) for item in value], signature=signature[1:])
    kinds = list(dbus.Signature(signature[1:-1]))
    return dbus.Struct([to_dbus(str(kind), item) for kind, item in zip(kinds, value)], signature=signature[1:-1])


def _variant(value: Any) -> Any:
    signature, plain = typed(value)
    made = to_dbus(signature, plain)
    if isinstance(made, (dbus.Boolean, dbus.Byte)):
        return type(made)(plain, variant_level=made.variant_level + 1)
    options = {"variant_level": made.variant_level + 1}
    if isinstance(made, (dbus.Array, dbus.Dictionary, dbus.Struct)):
        options["signature"] = made.signature
    return type(made)(made, **options)


def from_dbus(value: Any) -> Any:
    """Plain Python values, for comparing and printing. Byte arrays become bytes."""
    if isinstance(value, dbus.Boolean):
        return bool(value)
    if isinstance(value, dbus.Dictionary):
        return {from_dbus(k): from_dbus(v) for k, v in value.items()}
    if isinstance(value, dbus.Array) and value.signature == "y":
        return bytes(value)
    if isinstance(value, (dbus.Array, dbus.Struct, list, tuple)):
        return [from_dbus(item) for item in value]
    for kind in (str, int, float):
        if isinstance(value, kind):
            return kind(value)
    return value


def to_json(value: Any) -> Any:
    if isinstance(value, Typed):
        return {"signature": value.signature, "typed": to_json(value.value)}
    if isinstance(value, dict):
        return {key: to_json(item) for key, item in value.items()}
    if isinstance(value, (list, tuple)):
        return [to_json(item) for item in value]
    return value


def from_json(value: Any) -> Any:
    if isinstance(value, dict) and value.keys() == {"signature", "typed"}:
        return Typed(value["signature"], from_json(value["typed"]))
    if isinstance(value, dict):
        return {key: from_json(item) for key, item in value.items()}
    if isinstance(value, list):
        return [from_json(item) for item in value]
    return value
