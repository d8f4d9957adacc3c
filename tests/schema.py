"""docs/schemas, by which tests judge JSON that the programs write."""

import json
import pathlib

import jsonschema

folder = pathlib.Path(__file__).resolve().parent.parent / "docs/schemas"


def schema(name, strict=True):
    """With `strict`, members that the schema doesn't name are faults."""
    document = json.loads((folder / f"{name}.schema.json").read_text())
    jsonschema.Draft202012Validator.check_schema(document)

    def close(value):
        if isinstance(value, dict):
            if "properties" in value:
                value.setdefault("additionalProperties", False)
            for each in value.values():
                close(each)
        elif isinstance(value, list):
            for each in value:
                close(each)
    if strict:
        close(document)
    return jsonschema.Draft202012Validator(document)


def faults(validator, documents):
    return [f"{error.json_path}: {error.message[:200]}" for document in documents for error in validator.iter_errors(document)]
