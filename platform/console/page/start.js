// Loads the page's modules. When one of them does not come (the service is being restarted, the network has changed),
// all is loaded again: a module that has failed once is not asked for a second time.

import("./main.js").catch(() => {
    document.querySelector("main p").textContent = "The page could not be loaded completely. Trying again…";
    setTimeout(() => location.reload(), 2000);
});
