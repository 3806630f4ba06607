"""Images: every archive format by both ways of uploading, refusals, a full disk, clients that go away."""

import concurrent.futures
import os
import pathlib
import subprocess
import time

import pytest
from conftest import PREFIX, kx

IMAGES = pathlib.Path("/userstorage1/container_rte/utilities/images")
FORMATS = {"tar": ["cat"], "tar.bz2": ["bzip2", "-c"], "tar.xz": ["xz", "-0c"], "tar.zst": ["zstd", "-1qc"]}


@pytest.fixture(scope="module")
def archives(programs, tmp_path_factory):
    """The image localhost/traveller:1, saved in each format and removed from Podman."""
    directory = tmp_path_factory.mktemp("archives")
    kx.podman("run", "--name", "maker", kx.IMAGE, "touch", "/luggage")
    kx.podman("commit", "-q", "maker", "localhost/traveller:1")
    kx.podman("rm", "maker")
    plain = directory / "image.tar.plain"
    kx.podman("save", "-q", "-o", str(plain), "localhost/traveller:1")
    for suffix, command in FORMATS.items():
        with open(plain, "rb") as source, open(directory / f"image.{suffix}", "wb") as target:
            subprocess.run(command, stdin=source, stdout=target, check=True)
    kx.podman("rmi", "localhost/traveller:1")
    return directory


def curl(service, *arguments):
    """Runs curl as a user would; gives the status and the body."""
    result = subprocess.run(
        ["curl", "-sS", "-w", "\n%{http_code}", "-H", f"Authorization: Bearer {service.token()}", *arguments],
        text=True, capture_output=True, timeout=60, check=True)
    body, status = result.stdout.rsplit("\n", 1)
    return int(status), body


def url(service):
    return f"http://127.0.0.1:{service.port}{kx.BASE}/images"


def tags(service):
    return {tag for image in service.request("GET", "/images").json()["images"] for tag in image.get("RepoTags") or []}


@pytest.mark.parametrize("suffix", FORMATS)
@pytest.mark.parametrize("way", ["form", "raw", "chunked"])
def test_saved_image_comes_back_and_runs(service, archives, suffix, way):
    archive = archives / f"image.{suffix}"
    arguments = {"form": ["-F", f"file=@{archive}"],
                 "raw": ["-X", "POST", "-T", str(archive), "-H", f"Content-Disposition: attachment; filename={archive.name}"],
                 "chunked": ["-X", "POST", "-T", str(archive), "-H", "Transfer-Encoding: chunked",
                             "-H", f"Content-Disposition: attachment; filename={archive.name}"]}[way]
    assert "localhost/traveller:1" not in tags(service)
    assert curl(service, *arguments, url(service)) == (204, "")
    assert "localhost/traveller:1" in tags(service)
    assert list(IMAGES.iterdir()) == []
    assert PREFIX + f"Finished loading image {IMAGES}/{archive.name}" in service.log()
    assert kx.podman("run", "--rm", "localhost/traveller:1", "ls", "/luggage") == "/luggage"
    answer = service.request("DELETE", "/images/localhost/traveller:1")
    assert answer.status == 200 and {"Untagged": "localhost/traveller:1"} in answer.json()
    assert [list(entry) for entry in answer.json()].count(["Deleted"]) >= 1


def test_removal_maps_what_podman_says(service):
    listed = service.request("GET", "/images").json()["images"][0]
    keys = ["Id", "ParentId", "RepoTags", "RepoDigests", "Containers", "Created", "Size", "SharedSize", "Labels"]
    assert list(listed) == [key for key in keys if key in listed] and "Id" in listed
    kx.podman("run", "-d", "--name", "user", kx.IMAGE, "sleep", "1000")
    for name, status, detail in [("localhost/ghost:1", 404, "Image 'localhost/ghost:1' does not exist"),
                                 (kx.IMAGE, 409, f"Image '{kx.IMAGE}' is in use and cannot be deleted"),
                                 ("", 400, "Image name must be provided")]:
        answer = service.request("DELETE", f"/images/{name}")
        assert (answer.status, answer.detail()) == (status, detail)
    kx.podman("rm", "-f", "-t", "0", "user")


def test_rejected_file_stays_and_one_that_podman_refuses_goes(service, tmp_path):
    text = tmp_path / "notes.tar"
    text.write_text("no archive at all")
    status, body = curl(service, "-F", f"file=@{text}", url(service))
    assert status == 400 and "Uploaded file is not a valid tar archive (supported: .tar, .tar.gz/.tgz, .tar.bz2" in body
    assert (IMAGES / "notes.tar").read_text() == "no archive at all"
    (IMAGES / "notes.tar").unlink()
    fake = tmp_path / "fake.tar"
    fake.write_bytes(b"BZh9 not really")
    status, body = curl(service, "-F", f"file=@{fake}", url(service))
    assert status == 500 and "Error occurred while loading the image: " in body
    assert list(IMAGES.iterdir()) == []


@pytest.mark.parametrize("arguments", [
    ["-X", "POST"], ["-F", "comment=no file here"], ["-X", "POST", "-H", "Content-Type: application/x-tar", "-d", "x"],
    ["-X", "POST", "-H", "Content-Type: application/x-tar", "-H", "Content-Disposition: attachment; filename=..", "-d", "x"]])
def test_upload_without_a_named_file_is_refused(service, arguments):
    status, body = curl(service, *arguments, url(service))
    assert status == 400 and "No image tarball was uploaded" in body, body


def test_only_the_last_component_of_a_file_name_counts(service, tmp_path):
    empty = tmp_path / "empty"
    empty.write_bytes(b"")
    for name in ("../../../etc/evil", "C:\\\\temp\\\\evil"):
        status, body = curl(service, "-F", f'file=@{empty};filename="{name}"', url(service))
        assert status == 400 and "not a valid tar archive" in body, body
        left = [path for path in IMAGES.iterdir()]
        assert len(left) == 1 and left[0].name.endswith("evil")
        left[0].unlink()


def test_second_file_in_a_form_is_refused(service, archives):
    archive = archives / "image.tar"
    status, _ = curl(service, "-F", f"a=@{archive}", "-F", f"b=@{archive}", url(service))
    assert status == 400


def test_uploads_side_by_side_do_not_mix(service, archives, tmp_path):
    """Different names load. Two of the same name may spoil each other's file, but not a later one's."""
    for number in range(4):
        os.link(archives / "image.tar", tmp_path / f"image{number}.tar")
    with concurrent.futures.ThreadPoolExecutor() as pool:
        answers = list(pool.map(lambda number: curl(service, "-F", f"file=@{tmp_path}/image{number}.tar", url(service)),
                                range(4)))
    assert answers == [(204, "")] * 4
    with concurrent.futures.ThreadPoolExecutor() as pool:
        answers = list(pool.map(lambda _: curl(service, "-F", f"file=@{tmp_path}/image0.tar", url(service))[0], range(2)))
    assert set(answers) <= {204, 400, 500}
    assert curl(service, "-F", f"file=@{tmp_path}/image0.tar", url(service)) == (204, "")
    assert service.request("DELETE", "/images/localhost/traveller:1").status == 200


def test_full_disk_is_an_error_and_the_next_upload_works(service, archives, tmp_path):
    big = tmp_path / "big.tar"
    subprocess.run(["truncate", "-s", "64M", big], check=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=8M", "tmpfs", IMAGES], check=True)
    try:
        for arguments in (["-F", f"file=@{big}"],
                          ["-X", "POST", "-T", str(big), "-H", "Content-Disposition: attachment; filename=big.tar"]):
            result = subprocess.run(["curl", "-sS", "-w", "%{http_code}", "-H", f"Authorization: Bearer {service.token()}",
                                     *arguments, url(service)], text=True, capture_output=True, timeout=60)
            assert result.stdout.endswith("500") and "Upload failed" in result.stdout, result
        assert PREFIX + f"Error writing to upload file '{IMAGES}/big.tar'" in service.log()
        assert curl(service, "-F", f"file=@{archives}/image.tar;filename=big.tar", url(service)) == (204, "")
    finally:
        subprocess.run(["umount", "-l", IMAGES], check=True)
    assert service.request("DELETE", "/images/localhost/traveller:1").status == 200


def test_client_gone_midway_leaves_no_finish_and_no_leak(service, archives):
    finished = service.log().count("Loading image")
    content = (archives / "image.tar").read_bytes()
    request = (f"POST {kx.BASE}/images HTTP/1.1\r\nHost: localhost\r\nAuthorization: Bearer {service.token()}\r\n"
               f"Content-Type: application/x-tar\r\nContent-Disposition: attachment; filename=half.tar\r\n"
               f"Content-Length: {len(content)}\r\n\r\n").encode()
    for round in range(30):
        with service.raw(request + content[:len(content) // 2]):
            time.sleep(0.02)
        if round == 9:  # by now every thread that takes uploads is there
            time.sleep(0.5)
            before = service.threads(), service.descriptors()
    kx.wait_until(lambda: service.threads() <= before[0] + 2 and service.descriptors() <= before[1] + 12, 10,
                  f"threads and descriptors stay near {before}")
    assert service.log().count("Loading image") == finished
    status, body = curl(service, "-X", "POST", url(service))
    assert status == 400, "nobody's upload ends as somebody else's"
    assert curl(service, "-F", f"file=@{archives}/image.tar", url(service)) == (204, "")
    assert service.request("DELETE", "/images/localhost/traveller:1").status == 200
    (IMAGES / "half.tar").unlink()


def test_upload_over_the_limit_is_refused(device, start_service, tmp_path):
    running = start_service({"WebApi.MaxUploadBytes": 100000})
    big = tmp_path / "big"
    big.write_bytes(bytes(100001))
    named = ["-X", "POST", "-T", str(big), "-H", "Content-Disposition: attachment; filename=big"]
    for arguments in (["-F", f"file=@{big}"], named, [*named, "-H", "Transfer-Encoding: chunked"]):
        result = subprocess.run(["curl", "-sS", "-w", "%{http_code}", "-H", f"Authorization: Bearer {running.token()}",
                                 *arguments, url(running)], text=True, capture_output=True, timeout=60)
        assert result.stdout.endswith("413"), result
    assert running.request("GET", "/settings").status == 200
    assert running.stop() == 0
