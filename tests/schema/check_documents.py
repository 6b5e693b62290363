#!/usr/bin/env python3
"""Validates discover request and result documents against the JSON Schemas in schema/.

    check_documents.py --results DIR [--min N]   every *.json in DIR against result.schema.json
    check_documents.py --result FILE...          the named result documents
    check_documents.py --request FILE...         the named request documents
"""
import argparse
import json
import pathlib
import sys

import jsonschema

SCHEMA_DIR = pathlib.Path(__file__).resolve().parents[2] / "schema"


def validator(name, definition=None):
    schema = json.loads((SCHEMA_DIR / f"{name}.schema.json").read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    if definition is not None:
        schema = {"$schema": schema["$schema"], "$defs": schema["$defs"],
                  "$ref": f"#/$defs/{definition}"}
    return jsonschema.Draft202012Validator(schema)


def problems(check, document):
    """The validation errors as short texts (empty: the document is valid)."""
    return [f"{'/'.join(map(str, e.absolute_path)) or '(document)'}: {e.message}"
            for e in sorted(check.iter_errors(document), key=lambda e: list(map(str, e.path)))]


def check_files(check, paths):
    bad = 0
    for path in paths:
        try:
            document = json.loads(pathlib.Path(path).read_text(encoding="utf-8"))
        except (OSError, ValueError) as error:
            print(f"{path}: not a JSON document: {error}", file=sys.stderr)
            bad += 1
            continue
        found = problems(check, document)
        for text in found[:10]:
            print(f"{path}: {text}", file=sys.stderr)
        bad += bool(found)
    return bad


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--results", help="folder of result documents")
    parser.add_argument("--min", type=int, default=1, help="fewest documents --results must find")
    parser.add_argument("--result", nargs="*", default=[])
    parser.add_argument("--request", nargs="*", default=[])
    args = parser.parse_args()

    results = list(args.result)
    if args.results:
        found = sorted(str(p) for p in pathlib.Path(args.results).glob("*.json"))
        if len(found) < args.min:
            print(f"{args.results}: {len(found)} result documents, expected at least {args.min}", file=sys.stderr)
            return 1
        results += found
    bad = check_files(validator("result"), results) + check_files(validator("request"), args.request)
    total = len(results) + len(args.request)
    print(f"{total - bad} of {total} documents valid")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
