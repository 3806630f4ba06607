"""The OpenAPI document drives requests at the service that it describes."""

METHODS = ("get", "put", "post", "patch", "delete")


def test_every_described_operation_answers_as_described(fresh_service):
    """Each is called as the document says, on things that are not there; conftest.py checks the answers."""
    document = fresh_service.request("GET", "/openapi.json").json()
    seen = []
    for route, item in document["paths"].items():
        for method in METHODS:
            operation = item.get(method)
            if operation is None:
                continue
            body = operation.get("requestBody", {}).get("content", {})
            query = "&".join(f"{parameter['name']}={ {'boolean': 'true', 'integer': '1'}.get(parameter['schema']['type'], 'x')}"
                             for parameter in operation.get("parameters", []) if parameter["in"] == "query")
            headers = {"Content-Type": "application/octet-stream", "Content-Disposition": "attachment; filename=x.crp"}
            answer = fresh_service.request(
                method.upper(), route.replace("{name}", "nothing.crp") + ("?" + query if query else ""),
                {"enabled": True, "activate": True, "cores_num": 1} if "application/json" in body else
                b"content" if body else None, None if "application/json" in body or not body else headers)
            assert answer.status not in (401, 405, 415, 501), (method, route, answer.body)
            seen.append(operation["operationId"])
    assert len(seen) == len(set(seen)) >= 30
