"use strict";

// An event page: it may start anew at any time, when the entry is there already.
browser.menus.create(
    {
        id: "check",
        title: browser.i18n.getMessage("menu"),
        contexts: ["message_list"],
    },
    () => browser.runtime.lastError
);

// So that the entry is there from the start.
browser.runtime.onStartup.addListener(() => {});
browser.runtime.onInstalled.addListener(() => {});

browser.menus.onClicked.addListener(({selectedMessages}) => {
    const query = new URLSearchParams({messages: selectedMessages.messages.map(each => each.id).join()});
    if (selectedMessages.id) query.set("list", selectedMessages.id); // there are more than one page of them
    browser.windows.create({type: "popup", url: `panel.html?${query}`, width: 720, height: 640});
});
