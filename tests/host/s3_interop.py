#!/usr/bin/env python3
"""The s3 provider beside another S3 client, on the run's local server (scripts/s3rver).

1. Signatures: qfs runs built-ins through a recording proxy in front of the server; every
   request it really sent is signed again with botocore's SigV4 signer (same time, same
   signed headers) and the two signatures must agree.
2. Interoperation: what boto3 writes (objects, a folder marker, a folder implied by a key)
   the built-ins see as files and folders; what mkFileFcn makes, boto3 lists as objects
   and markers.

usage: s3_interop.py QFS STATE_FILE
"""
import http.client
import http.server
import json
import os
import subprocess
import sys
import threading
import urllib.parse

import boto3
from botocore.auth import S3SigV4Auth
from botocore.awsrequest import AWSRequest
from botocore.config import Config
from botocore.credentials import Credentials

qfs, state_file = sys.argv[1], sys.argv[2]
state = dict(line.split("=", 1) for line in open(state_file).read().split())
server = urllib.parse.urlsplit(state["AWS_ENDPOINT_URL"])
failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
        print("FAIL:", what)


recorded = []


class Proxy(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def relay(self):
        body = self.rfile.read(int(self.headers.get("Content-Length") or 0))
        recorded.append((self.command, self.path, {k.lower(): v for k, v in self.headers.items()},
                         body))
        c = http.client.HTTPConnection(server.hostname, server.port)
        c.request(self.command, self.path, body=body, headers=dict(self.headers.items()))
        r = c.getresponse()
        data = r.read()
        self.send_response(r.status, r.reason)
        for k, v in r.getheaders():
            if k.lower() not in ("connection", "transfer-encoding", "content-length"):
                self.send_header(k, v)
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(data)

    do_GET = do_PUT = do_HEAD = do_DELETE = relay

    def log_message(self, *args):
        pass


def run_qfs(statement, endpoint, extra_env=None):
    env = dict(os.environ)
    env.update({k: v for k, v in state.items() if k.startswith("AWS_")})
    env["AWS_ENDPOINT_URL"] = endpoint
    env.update(extra_env or {})
    out = subprocess.run([qfs, "--json", statement], env=env, capture_output=True, text=True,
                         timeout=60)
    return json.loads(out.stdout.splitlines()[-1])


s3 = boto3.client("s3", endpoint_url=state["AWS_ENDPOINT_URL"],
                  aws_access_key_id=state["AWS_ACCESS_KEY_ID"],
                  aws_secret_access_key=state["AWS_SECRET_ACCESS_KEY"], region_name="us-east-1",
                  config=Config(s3={"addressing_style": "path"}))
bucket = "zkfs-interop-%d" % os.getpid()
s3.create_bucket(Bucket=bucket)

# 1. Signatures, on requests of every kind the provider sends (HEAD, listings with their
# queries, PUT, DELETE), with a key that needs escaping and with a session token.
proxy = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Proxy)
threading.Thread(target=proxy.serve_forever, daemon=True).start()
via_proxy = "http://127.0.0.1:%d" % proxy.server_address[1]
for token in ("", "FQoGZXIvYXdzEXAMPLE+/token=="):
    run_qfs("mkFileFcn('s3://%s/sig/d%%20ir/%%C3%%BC+b=c.txt', 'ReplacementRule', 'overwrite')"
            % bucket, via_proxy, {"AWS_SESSION_TOKEN": token})
    run_qfs("resolvePathFcnWithAttributes({'s3://%s/sig/d ir'; 's3://%s/none'})" % (bucket, bucket),
            via_proxy, {"AWS_SESSION_TOKEN": token})
# The secret and the token never show, not even in --debug records of a failing call.
env = dict(os.environ, AWS_ENDPOINT_URL="http://127.0.0.1:1", AWS_SESSION_TOKEN="TokenSecret",
           AWS_ACCESS_KEY_ID="AKID", AWS_SECRET_ACCESS_KEY="KeySecret")
shown = subprocess.run([qfs, "--debug", "p = getPerms_impl('s3://%s/x', 'File', 'R')" % bucket],
                       env=env, capture_output=True, text=True, timeout=60)
check("Exception caught" in shown.stderr, "--debug records the failure")
check("Secret" not in shown.stdout + shown.stderr, "no secret in the output")
proxy.shutdown()
methods = set()
for method, path, headers, body in recorded:
    auth = headers.get("authorization", "")
    check(auth.startswith("AWS4-HMAC-SHA256 "), "%s %s is signed" % (method, path))
    fields = dict(p.strip().split("=", 1) for p in auth[len("AWS4-HMAC-SHA256 "):].split(","))
    signed = fields["SignedHeaders"].split(";")
    request = AWSRequest(method=method, url=via_proxy + path, data=body,
                         headers={k: v for k, v in headers.items() if k in signed})
    request.context["timestamp"] = headers["x-amz-date"]
    credentials = Credentials(state["AWS_ACCESS_KEY_ID"], state["AWS_SECRET_ACCESS_KEY"],
                              headers.get("x-amz-security-token"))
    signer = S3SigV4Auth(credentials, "s3", "us-east-1")
    signer._modify_request_before_signing(request)
    expected = signer.signature(
        signer.string_to_sign(request, signer.canonical_request(request)), request)
    check(fields["Signature"] == expected, "botocore's signature for %s %s" % (method, path))
    methods.add(method)
check(methods >= {"HEAD", "GET", "PUT", "DELETE"}, "every kind of request seen: %s" % methods)
check(any("x-amz-security-token" in h for _, _, h, _ in recorded), "a session token was sent")
print("signatures checked: %d requests" % len(recorded))

# 2. boto3 writes, the built-ins read.
s3.put_object(Bucket=bucket, Key="boto/a b.txt", Body=b"12345")
s3.put_object(Bucket=bucket, Key="boto/marked/", Body=b"")
s3.put_object(Bucket=bucket, Key="boto/implied/x.csv", Body=b"1")
answer = run_qfs("r = resolvePathFcnWithAttributes({'s3://%s/boto/a b.txt'; 's3://%s/boto/marked';"
                 " 's3://%s/boto/implied'; 's3://%s/boto/none'})" % ((bucket,) * 4),
                 state["AWS_ENDPOINT_URL"])
seen = [(e["Type"]["value"][0], e["Size"]["value"][0]) for e in answer["outputs"][0]["value"]]
check(seen == [("File", 5), ("Folder", 0), ("Folder", 0), ("None", 0)], "qfs sees %s" % seen)

# The built-ins write, boto3 reads.
answer = run_qfs("ok = mkFileFcn('s3://%s/qfs/deep/\u00fc.txt')" % bucket,
                 state["AWS_ENDPOINT_URL"])
check(answer["outputs"][0]["value"] == [True], "mkFileFcn: %s" % answer)
keys = [o["Key"] for o in s3.list_objects_v2(Bucket=bucket, Prefix="qfs/")["Contents"]]
check(keys == ["qfs/", "qfs/deep/", "qfs/deep/\u00fc.txt"], "boto3 sees %s" % keys)
level = s3.list_objects_v2(Bucket=bucket, Prefix="qfs/", Delimiter="/")
check([p["Prefix"] for p in level.get("CommonPrefixes", [])] == ["qfs/deep/"],
      "boto3's folders: %s" % level.get("CommonPrefixes"))
check(s3.head_object(Bucket=bucket, Key="qfs/deep/\u00fc.txt")["ContentLength"] == 0,
      "the object is empty")

sys.exit(1 if failures else 0)
