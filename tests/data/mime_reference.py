#!/usr/bin/env python3
"""Reference decoding of a message's leaf parts with Python's email package.

Prints one line per leaf part that has at least one header field, in message
order: the lower-case content transfer encoding, a blank, and the decoded
body in hexadecimal with its trailing CR and LF bytes removed.  A leaf whose
type is message/* prints "message" instead (its body is an embedded message).
The first line is "defects N": the number of defects Python's parser noted.
"""
import email
import sys


def leaves(part):
    if part.get_content_maintype() == "message" and part.is_multipart():
        yield part, True
    elif part.is_multipart():
        for child in part.get_payload():
            yield from leaves(child)
    else:
        yield part, False


def main(path):
    with open(path, "rb") as f:
        msg = email.message_from_binary_file(f)
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
        print(cte or "7bit", body.strip(b"\r\n").hex())


if __name__ == "__main__":
    main(sys.argv[1])
