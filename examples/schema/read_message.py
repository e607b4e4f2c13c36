#!/usr/bin/python3
"""Reads a message that the library has written, by the installed schema, and prints its fields:

    read_message.py DIR/share/vesk/schema TYPE <message.bin

It needs protoc and protobuf for Python (Debian: protobuf-compiler, python3-protobuf) and nothing of the library."""

import importlib
import pathlib
import subprocess
import sys
import tempfile

try:
    from google.protobuf import message, text_format
except ImportError:
    sys.exit("read_message: protobuf for Python is missing; install python3-protobuf")


def compiled(schema, folder):
    """Compiles the schema for Python; returns a module for each of its files."""
    files = sorted(pathlib.Path(schema).glob("*.proto"))
    if not files:
        sys.exit(f"read_message: {schema}: no .proto file")
    try:
        subprocess.run(["protoc", f"--proto_path={schema}", f"--python_out={folder}", *files], check=True)
    except (OSError, subprocess.CalledProcessError) as error:
        sys.exit(f"read_message: the schema is not compiled: {error}")
    sys.path.insert(0, folder)
    return [importlib.import_module(f"{file.stem}_pb2") for file in files]


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: read_message.py SCHEMA_FOLDER TYPE <message.bin")
    schema, name = sys.argv[1:]
    with tempfile.TemporaryDirectory() as folder:
        types = [getattr(module, name) for module in compiled(schema, folder) if hasattr(module, name)]
    if not types:
        sys.exit(f"read_message: {schema}: no message {name}")
    try:
        read = types[0].FromString(sys.stdin.buffer.read())
    except message.DecodeError as error:
        sys.exit(f"read_message: no {name}: {error}")
    print(text_format.MessageToString(read), end="")


if __name__ == "__main__":
    main()
