// Runs before the page is drawn, so that a chosen theme never flashes. Without a choice the system's holds.
'use strict';
(() => {
  const root = document.documentElement;
  const chosen = localStorage.getItem('theme');
  if (chosen === 'light' || chosen === 'dark') root.dataset.theme = chosen;

  const isDark = () =>
    root.dataset.theme ? root.dataset.theme === 'dark' : matchMedia('(prefers-color-scheme: dark)').matches;

  globalThis.changeTheme = () => {
    root.dataset.theme = isDark() ? 'light' : 'dark';
    localStorage.setItem('theme', root.dataset.theme);
  };
})();
