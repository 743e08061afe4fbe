"""What an evaluation came to."""

from __future__ import annotations

import json
from dataclasses import asdict, dataclass, field
from datetime import datetime, timezone
from itertools import zip_longest
from typing import Any, Optional

RULE_TYPES = (
    "strEqual", "strNoEqual", "strEnum", "strRegex", "intEqual", "intNoEqual", "intEnum",
    "intRange", "intConstant", "intIncrease", "intLEQ", "intGEQ", "tableMd5",
)  # fmt: skip


def _rule_name(number: int) -> str:
    return RULE_TYPES[number] if 0 <= number < len(RULE_TYPES) else str(number)


def _decoded(text: str) -> Any:
    """A JSON text inside a result; as it stands when it is none."""
    try:
        return json.loads(text)
    except ValueError:
        return text


@dataclass(frozen=True)
class _Item:
    device: str
    source: str
    param: str
    interface: str
    variable: str
    rule: str
    """The rule type: "intRange", "strEqual" and so on."""

    def to_dict(self) -> dict[str, Any]:
        return asdict(self)

    def _where(self) -> str:
        interface = f" {self.interface}" if self.interface else ""
        return f"{self.device} {self.source}{interface} {self.variable}"


@dataclass(frozen=True)
class Alert(_Item):
    """A value that broke its rule."""

    parameter: Any
    """Of the rule: {"minValue": 3, "maxValue": 7}, {"ruleParam": …}."""
    value: Optional[str]
    """What came instead, as text; None for variables with very long names."""
    time: int
    """Of the value, seconds since the epoch."""
    explanation: Optional[dict[str, Any]] = field(default=None, repr=False)
    """What was expected, why and since when, as `keelstone evaluate --explain` tells it."""

    @property
    def sentence(self) -> str:
        """The alert in words."""
        return str(self.explanation["sentence"]) if self.explanation else str(self)

    @property
    def at(self) -> datetime:
        return datetime.fromtimestamp(self.time, timezone.utc)

    def __str__(self) -> str:
        return f"{self._where()}: {self.value} breaks {self.rule} {json.dumps(self.parameter)}"

    @classmethod
    def _of(cls, item: dict[str, Any], explanation: Optional[dict[str, Any]]) -> Alert:
        info = _decoded(item["RuleParam"])
        info = info if isinstance(info, dict) else {}
        return cls(
            device=item["DeviceName"],
            source=item["SourcePath"],
            param=_text(item["ParserParam"]),
            interface=item["InterfaceValue"],
            variable=item["VaraibleName"],
            rule=_rule_name(info.get("_t", -1)),
            parameter=_decoded(info.get("_p", "")),
            value=info.get("_v"),
            time=item["LiveTime"],
            explanation=explanation,
        )


@dataclass(frozen=True)
class RuleUpdate(_Item):
    """A rule that was learned or changed."""

    parameter: Any

    def __str__(self) -> str:
        return f"{self._where()}: {self.rule} {json.dumps(self.parameter)}"

    @classmethod
    def _of(cls, item: dict[str, Any]) -> RuleUpdate:
        return cls(**_common(item), parameter=_decoded(item["strRuleAlgParam"]))


@dataclass(frozen=True)
class GoldenValue(_Item):
    """A reference value that changed."""

    value: Any
    time: int

    def __str__(self) -> str:
        return f"{self._where()}: golden value {json.dumps(self.value)}"

    @classmethod
    def _of(cls, item: dict[str, Any]) -> GoldenValue:
        return cls(
            **_common(item), value=_decoded(item["strJsonValue"]), time=item["nValueTime"]
        )


def _common(item: dict[str, Any]) -> dict[str, Any]:
    return {
        "device": item["strDeviceName"],
        "source": item["strVariableSource"],
        "param": item["strVariableParam"],
        "interface": item["strInterfaceName"],
        "variable": item["strVariableName"],
        "rule": _rule_name(item["nRuleId"]),
    }


def _text(value: Any) -> str:
    return value if isinstance(value, str) else json.dumps(value)


@dataclass(frozen=True)
class Refusal:
    """A value that was refused."""

    device: str
    source: str
    interface: str
    variable: str
    reason: str
    """In words: "it has no enabled definition"."""

    def __str__(self) -> str:
        interface = f" {self.interface}" if self.interface else ""
        return f"{self.device} {self.source}{interface} {self.variable}: {self.reason}"


@dataclass(frozen=True)
class Result:
    """The outcome of one run. True when there are alerts."""

    alerts: list[Alert]
    rules: list[RuleUpdate]
    golden_values: list[GoldenValue]
    rejected: list[str]
    """Names of values that were refused, in the order of the input."""
    variables: int
    """Values handed to the engine."""
    blocked: bool
    """The device is in a block period: nothing was learned."""
    engine_on: bool
    document: dict[str, Any] = field(repr=False)
    """The engine's own result document, as a host would upload it."""
    refused: list[Refusal] = field(default_factory=list)
    """The values of `rejected` with where they stand and why."""
    repeated: int = 0
    """Values that were judged before, and not again."""

    def to_dict(self) -> dict[str, Any]:
        return {**asdict(self), "document": self.document}

    def __bool__(self) -> bool:
        return bool(self.alerts)

    def __repr__(self) -> str:
        return (
            f"<Result: {len(self.alerts)} alerts, {len(self.rules)} rules, "
            f"{len(self.golden_values)} golden values, {len(self.rejected)} rejected "
            f"of {self.variables} variables>"
        )

    @classmethod
    def _of(
        cls,
        document: str,
        explanations: str,
        summary: tuple[
            int, bool, bool, list[str], list[tuple[str, str, str, str, str]], int
        ],
    ) -> Result:
        items = json.loads(document)
        alerts = zip_longest(items["alertItems"], json.loads(explanations))
        variables, blocked, engine_on, rejected, refused, repeated = summary
        return cls(
            alerts=[Alert._of(item, explanation) for item, explanation in alerts],
            rules=[RuleUpdate._of(item) for item in items["ruleItems"]],
            golden_values=[GoldenValue._of(item) for item in items["valueItems"]],
            rejected=rejected,
            variables=variables,
            blocked=blocked,
            engine_on=engine_on,
            document=items,
            refused=[Refusal(*value) for value in refused],
            repeated=repeated,
        )
