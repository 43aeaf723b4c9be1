#!/usr/bin/env python3
"""Reference decoding of a message's leaf parts with Python's email package.

Prints one line per leaf part that has at least one header field, in message
order: the lower-case content transfer encoding, a blank, and the decoded
body in hexadecimal with its trailing CR and LF bytes removed.  A leaf whose
type is message/* prints "message" instead (its body is an embedded message).
The first line is "defects N": the number of defects Python's parser noted.
With --exact first, bodies are printed whole, their line ends as in the file.
"""
import email
import io
import sys


def leaves(part):
    if part.get_content_maintype() == "message" and part.is_multipart():
        yield part, True
    elif part.is_multipart():
        for child in part.get_payload():
            yield from leaves(child)
    else:
        yield part, False


def main(path, exact=False):
    with open(path, "rb") as f:
        data = f.read()
    # message_from_binary_file reads through a text wrapper that turns CR LF
    # into LF; message_from_bytes keeps the line ends as they are.
    msg = email.message_from_bytes(data) if exact else email.message_from_binary_file(io.BytesIO(data))
    defects = sum(len(p.defects) for p in msg.walk())
    print("defects", defects)
    for part, embedded in leaves(msg):
        if not part.keys():
            continue
        if embedded:
            print("message")
            continue
        body = part.get_payload(decode=True) or b""
        cte = (part.get("content-transfer-encoding") or "7bit").strip().lower()
        print(cte or "7bit", (body if exact else body.strip(b"\r\n")).hex())


if __name__ == "__main__":
    if sys.argv[1] == "--exact":
        main(sys.argv[2], exact=True)
    else:
        main(sys.argv[1])
